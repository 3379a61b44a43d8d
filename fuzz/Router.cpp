// Any request as the host's router gets it from an HTTP library: method, path and body, then names and values
// of headers, each up to a NUL byte. Every answer is whole and of its status, nobody's token is in it, and
// the handler is called for nobody but who sends the token, once, and never for what the head is refused for.

#include "fuzz/Support.h"

namespace {

/// Whether it is the page, or an envelope of the status.
bool IsWhole(const KIVO::Host::HttpAnswer& answer) {
    Json::Value envelope;
    if (answer.status == 200 && answer.body == "<p>page</p>") {
        return true;
    }
    return KIVO::Appliance::ParseJson(answer.body, envelope) && envelope.isObject() &&
           (answer.status == 200
                ? envelope["success"] == true && envelope.isMember("data")
                : envelope["error"]["code"].asUInt() == answer.status && envelope["success"] == false);
}

}  // namespace

void KIVO::Fuzz::Try(const std::string& input) {
    Root();
    std::vector<std::string> texts = SplitTexts(input);
    texts.resize(std::max<std::size_t>(texts.size(), 3));
    Host::HttpRequest request{.method = texts[0], .path = texts[1], .body = texts[2]};
    int signedIn = 0, credentials = 0;
    for (std::size_t i = 4; i < texts.size(); i += 2) {
        request.headers.emplace_back(texts[i - 1], texts[i]);
        const bool isCredentials = strcasecmp(texts[i - 1].c_str(), "Authorization") == 0;
        credentials += isCredentials;
        signedIn += isCredentials && texts[i].ends_with(std::string(" ") + kToken);
    }
    const auto refusal = Router().RefuseHead(request);
    Expect("refused", !refusal || refusal->status == 400 || refusal->status == 421);
    Expect("two credentials are refused", credentials < 2 || refusal);
    const Host::HttpAnswer answer = refusal ? *refusal : Router().Answer(request);
    Expect("whole answer", IsWhole(answer));
    Expect("no token in an answer", answer.body.find(kToken) == answer.body.npos);
    Expect("calls", calls == (request.method == "POST" && request.path.starts_with("/webapi/") &&
                              answer.status == 200));
    Expect("no call without a token", calls == 0 || signedIn == 1);
    ExpectEqual("log", "", Logged());
}
