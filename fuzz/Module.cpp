// A target that is its own module, and the host's router over it.

#include "fuzz/Support.h"
#include "webapi/APIRequest.h"

namespace {

void Answer(KIVO::APIRequest* request, KIVO::APIResponse* response) {
    ++KIVO::Fuzz::calls;
    response->SetSuccess(request->GetLoginUserName());
}

const KIVO::APITableRow kRows[] = {{"Test", 1, "user", &Answer}, {}};
const KIVO::APICheckTableRow kCheckRows[] = {{"Test", 1, "user", [](auto*, auto*) { return true; }, {}}, {}};

}  // namespace

extern "C" {

KIVO_PUBLIC const KIVO::APITableRow* GetAPITable() { return kRows; }
KIVO_PUBLIC const KIVO::APICheckTableRow* GetAPICheckTable() { return kCheckRows; }

}  // extern "C"

const KIVO::Host::Router& KIVO::Fuzz::Router() {
    static const Host::Module module("");  // this program
    static const Host::Page page = {{"/", {"<p>page</p>", "text/html"}}};
    static Host::Activity activity;
    static const Host::Router router(module, page, activity, {.hostNames = {"h"}});
    return router;
}
