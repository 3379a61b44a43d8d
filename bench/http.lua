-- wrk's script: posts the body when it is given one with the token to post it with, and ends with one line of JSON.

function init(arguments)
    if arguments[1] then
        wrk.method = "POST"
        wrk.headers["Authorization"] = "Bearer " .. arguments[1]
        wrk.headers["Content-Type"] = "application/json"
        wrk.body = arguments[2]
    end
end

function done(summary, latency)
    local errors = summary.errors
    io.write(string.format('{"requestsPerSecond": %f, "p50": %d, "p99": %d, "errors": %d}\n',
        summary.requests / summary.duration * 1e6, latency:percentile(50), latency:percentile(99),
        errors.connect + errors.read + errors.write + errors.status + errors.timeout))
end
