#include "platform/kivocore/ErrorState.h"

#include "kivocore/error.h"

namespace KIVO::Appliance {

namespace {

struct Failure {
    int code = 0;
    const char* file = "";
    int line = 0;
};

thread_local Failure lastFailure;

}  // namespace

void SetLastError(ErrorCode code, const char* file, int line) noexcept {
    lastFailure = {static_cast<int>(code), file, line};
}

}  // namespace KIVO::Appliance

using KIVO::Appliance::lastFailure;

int KLIBCErrGet(void) { return lastFailure.code; }

const char* KLIBCErrorGetFile(void) { return lastFailure.file; }

int KLIBCErrorGetLine(void) { return lastFailure.line; }
