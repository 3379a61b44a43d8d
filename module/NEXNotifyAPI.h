#pragma once

// What the module serves: its two tables, its handlers and check functions, and the request handler base.

#include <json/value.h>

#include <string>

#include "webapi/APIRequest.h"
#include "webapi/APIResponse.h"
#include "webapi/APITable.h"

#define KIVO_MODULE_EXPORT __attribute__((visibility("default")))

extern "C" {

/// The API methods with their handlers, and with their check functions. Each ends with a zero row; neither
/// changes between load and unload.
extern KIVO_MODULE_EXPORT const KIVO::APITableRow gTable[4];
extern KIVO_MODULE_EXPORT const KIVO::APICheckTableRow gCheckTable[4];

/// The first row of gTable and of gCheckTable.
KIVO_MODULE_EXPORT const KIVO::APITableRow* GetAPITable();
KIVO_MODULE_EXPORT const KIVO::APICheckTableRow* GetAPICheckTable();

}  // extern "C"

/// The handler of "KIVO.Core.NEXNotify", method "notify". What is thrown as a std::exception is logged and
/// goes no further; the response then keeps what had been set.
void NEXNotify_1_notify(KIVO::APIRequest* request, KIVO::APIResponse* response);

/// Accepts a request to "notify", or sets error 120 with {"name", "reason"}, which names the first parameter
/// that is wrong, and returns false.
[[nodiscard]] bool NEXNotify_1_notify_Check(KIVO::APIRequest* request, KIVO::APIResponse* response);

/// Accept every request: their handlers check the parameters themselves.
[[nodiscard]] bool Strings_1_get_Check(KIVO::APIRequest* request, KIVO::APIResponse* response);
[[nodiscard]] bool MailContent_1_get_Check(KIVO::APIRequest* request, KIVO::APIResponse* response);

namespace KIVO::NEXNotify {

/// The handler of "KIVO.Core.NEXNotify.Strings", method "get": the texts of every notification tag in the UI
/// language, or of the tags that the package "pkgName" declares. Error 101 names the file that cannot be
/// read.
void Strings_1_get(APIRequest* request, APIResponse* response);

/// The handler of "KIVO.Core.NEXNotify.MailContent", method "get": the mail body of the tag "title". Error
/// 117 with null when it cannot be had.
void MailContent_1_get(APIRequest* request, APIResponse* response);

/// The protocol by which a request is answered: parse the parameters, do the work, form the output, and hand
/// the first error or the result to the response. One object answers one request, once.
class NEXNotifyAPIBase {
public:
    /// Borrows both, which are not null and must outlive the object.
    NEXNotifyAPIBase(APIRequest* request, APIResponse* response);
    virtual ~NEXNotifyAPIBase() = default;
    NEXNotifyAPIBase(const NEXNotifyAPIBase&) = delete;
    NEXNotifyAPIBase& operator=(const NEXNotifyAPIBase&) = delete;

    /// Runs the three steps in order up to the first that returns another code than 0, then sets the response
    /// once: that code with m_error, or success with m_result.
    virtual void Run();

    /// The steps. Each returns 0 or an error code; what the client should be told besides is left in m_error.
    [[nodiscard]] virtual int ParseParams() { return 0; }
    [[nodiscard]] virtual int Execute() { return 0; }
    [[nodiscard]] virtual int FormOutput() { return 0; }

    /// The error object {"sec", "key", "line"}: which message the client shows, and where the error was
    /// formed. A negative line is left out.
    virtual Json::Value FormError(std::string sec, std::string key, int line);

protected:
    APIRequest* m_request;
    APIResponse* m_response;
    Json::Value m_error;
    Json::Value m_result;
};

}  // namespace KIVO::NEXNotify
