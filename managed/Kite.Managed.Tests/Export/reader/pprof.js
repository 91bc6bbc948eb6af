// Reads a file for pprof with somebody else's definitions and prints it as JSON, with the texts in place of their numbers:
//     node pprof.js FILE
const fs = require('fs');
const zlib = require('zlib');
const {Profile} = require('pprof-format');

const profile = Profile.decode(zlib.gunzipSync(fs.readFileSync(process.argv[2])));
const text = index => profile.stringTable.strings[Number(index)];
const type = one => `${text(one.type)} in ${text(one.unit)}`;
const functions = new Map(profile.function.map(one => [one.id, text(one.name)]));
const locations = new Map(profile.location.map(one => [one.id, one.line.map(line => functions.get(line.functionId)).join()]));
console.log(JSON.stringify({
  first: text(0),
  types: profile.sampleType.map(type),
  samples: profile.sample.map(sample => ({
    stack: sample.locationId.map(id => locations.get(id)),
    values: sample.value.map(Number),
    labels: sample.label.map(label => `${text(label.key)}=${text(label.str)}`),
  })),
  time: String(profile.timeNanos),
  duration: String(profile.durationNanos),
  period: `${profile.period} ${type(profile.periodType)}`,
  comments: profile.comment.map(text),
  shown: text(profile.defaultSampleType),
}));
