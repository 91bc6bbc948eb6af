// Reads requests of OTLP with the official definitions and prints each as JSON, with ids in base64 and 64 bits as text:
//     node read.js json FILE        a request on each line; a field that the definitions do not have is an error
//     node read.js protobuf FILE    one request
const assert = require('assert');
const fs = require('fs');
const root = require('@opentelemetry/otlp-transformer/build/src/generated/root.js');

const request = root.opentelemetry.proto.collector.trace.v1.ExportTraceServiceRequest;
const ids = new Set(['traceId', 'spanId', 'parentSpanId']);
const [form, file] = process.argv.slice(2);

const plain = message => request.toObject(message, {longs: String, bytes: String, json: true});

// The JSON form of OTLP has hexadecimal digits where that of Protocol Buffers has base64.
function readJson(line) {
  const read = JSON.parse(line, (key, value) => ids.has(key) ? Buffer.from(value, 'hex').toString('base64') : value);
  const message = request.fromObject(read);
  assert.strictEqual(request.verify(message), null);
  assert.deepStrictEqual(plain(message), read);
  return read;
}

const requests = form === 'json'
  ? fs.readFileSync(file, 'utf8').split('\n').filter(line => line).map(readJson)
  : [plain(request.decode(fs.readFileSync(file)))];
for (const one of requests) {
  console.log(JSON.stringify(one));
}
