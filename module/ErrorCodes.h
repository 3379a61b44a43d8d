#pragma once

namespace KIVO::NEXNotify {

/// The error numbers of the web-API framework that the module answers with. 0 is success.
enum ErrorCode {
    kSuccess = 0,
    /// The action is unknown, or a file that the answer is made of cannot be read.
    kErrorBadRequest = 101,
    /// The system failed, or a parameter cannot be converted.
    kErrorSystem = 117,
    /// The parameter check refuses the request.
    kErrorBadParameter = 120,
};

}  // namespace KIVO::NEXNotify
