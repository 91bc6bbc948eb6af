using System;
using System.Globalization;
using System.IO;
using System.Net.Http;
using System.Net.Http.Headers;
using System.Net.Sockets;
using System.Security.Authentication;
using System.Threading;

namespace Corvane.Instrumentation.Export;

// Posts to the end point and waits for its answer. Of what it answers only figures are taken: a text of it may
// repeat what was sent.
internal sealed class OtlpClient : IDisposable
{
    internal const string NoAnswerBeforeTheEnd = "the end point did not answer before the process ended";

    private const int MaxAnswer = 1 << 16;

    private readonly OtlpEndpoint endpoint;
    private readonly string contentType;
    private readonly HttpClient client;

    internal OtlpClient(OtlpEndpoint endpoint, string contentType)
    {
        this.endpoint = endpoint;
        this.contentType = contentType;
        client = new HttpClient(Handler()) { Timeout = Timeout.InfiniteTimeSpan };
    }

    public void Dispose() => client.Dispose();

    internal OtlpAnswer Post(byte[] body, TimeSpan most)
    {
        using var limit = new CancellationTokenSource();
        try
        {
            limit.CancelAfter(most);
            using var request = new HttpRequestMessage(HttpMethod.Post, endpoint.Address);
            request.Content = new ByteArrayContent(body);
            request.Content.Headers.ContentType = new MediaTypeHeaderValue(contentType);
            foreach (var header in endpoint.Headers)
            {
                request.Headers.TryAddWithoutValidation(header.Key, header.Value);
            }
            using var response = Send(request, limit.Token);
            var status = (int)response.StatusCode;
            if (!response.IsSuccessStatusCode)
            {
                return OtlpAnswer.Refused(status, RetryAfter(response.Headers.RetryAfter));
            }
            return OtlpAnswer.Accepted(OtlpAnswer.RejectedIn(Read(response, limit.Token), endpoint.IsJson));
        }
        catch (OperationCanceledException)
        {
            return OtlpAnswer.None(
                most < endpoint.Timeout
                    ? NoAnswerBeforeTheEnd
                    : $"no answer within {most.TotalSeconds.ToString("0.###", CultureInfo.InvariantCulture)} s");
        }
        catch (Exception exception) when (exception is HttpRequestException or IOException)
        {
            return OtlpAnswer.None(Reason(exception));
        }
    }

    // Other texts of the platform quote the answer, or the address of a proxy with what it holds.
    private static string Reason(Exception exception) => exception.InnerException switch
    {
        SocketException or AuthenticationException => exception.InnerException.Message,
        _ => "the connection failed, or the answer is none of HTTP's",
    };

    // What keeps sending also goes to no other place, and leaves no trace of its own with whoever traces the
    // program's requests.
    private static HttpMessageHandler Handler() =>
#if NET
        new SocketsHttpHandler
        {
            AllowAutoRedirect = false,
            UseCookies = false,
            ActivityHeadersPropagator = null,
            PooledConnectionLifetime = TimeSpan.FromMinutes(5),
        };
#else
        new HttpClientHandler { AllowAutoRedirect = false, UseCookies = false };
#endif

    // A program whose pool of threads is busy does not keep this waiting, where the platform can do without.
    private HttpResponseMessage Send(HttpRequestMessage request, CancellationToken limit) =>
#if NET
        client.Send(request, HttpCompletionOption.ResponseHeadersRead, limit);
#else
        client.SendAsync(request, HttpCompletionOption.ResponseHeadersRead, limit).GetAwaiter().GetResult();
#endif

    // Spans that were accepted stay so, whatever the answer says.
    private static byte[] Read(HttpResponseMessage response, CancellationToken limit)
    {
        try
        {
            using var stream = response.Content.ReadAsStreamAsync().GetAwaiter().GetResult();
            using var closing = limit.Register(stream.Dispose);
            var answer = new MemoryStream();
            var part = new byte[4096];
            int count;
            while (answer.Length < MaxAnswer && (count = stream.Read(part, 0, part.Length)) > 0)
            {
                answer.Write(part, 0, count);
            }
            return answer.ToArray();
        }
        catch (Exception)
        {
            return new byte[0];
        }
    }

    private static TimeSpan? RetryAfter(RetryConditionHeaderValue? header)
    {
        var wait = header?.Delta ?? (header?.Date - DateTimeOffset.UtcNow);
        return wait < TimeSpan.Zero ? TimeSpan.Zero : wait;
    }
}
