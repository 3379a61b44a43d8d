// The module's two tables and the entry handler of method "notify".

#include <exception>

#include "module/Log.h"
#include "module/NEXNotifyAPI.h"
#include "module/SourceLines.h"
#include "notify/Notify.h"

using namespace KIVO::NEXNotify;

const KIVO::APITableRow gTable[4] = {
    {"KIVO.Core.NEXNotify", 1, "notify", NEXNotify_1_notify},
    {"KIVO.Core.NEXNotify.Strings", 1, "get", Strings_1_get},
    {"KIVO.Core.NEXNotify.MailContent", 1, "get", MailContent_1_get},
    {},
};

const KIVO::APICheckTableRow gCheckTable[4] = {
    {"KIVO.Core.NEXNotify.MailContent", 1, "get", MailContent_1_get_Check, {}},
    {"KIVO.Core.NEXNotify.Strings", 1, "get", Strings_1_get_Check, {}},
    {"KIVO.Core.NEXNotify", 1, "notify", NEXNotify_1_notify_Check, {}},
    {},
};

const KIVO::APITableRow* GetAPITable() { return gTable; }

const KIVO::APICheckTableRow* GetAPICheckTable() { return gCheckTable; }

bool Strings_1_get_Check(KIVO::APIRequest*, KIVO::APIResponse*) { return true; }

bool MailContent_1_get_Check(KIVO::APIRequest*, KIVO::APIResponse*) { return true; }

void NEXNotify_1_notify(KIVO::APIRequest* request, KIVO::APIResponse* response) {
    try {
        Notify handler(request, response);
        handler.Run();
    } catch (const std::exception& exception) {
        // Named after the header of the API, by which log readers know this line.
        syslog(LOG_ERR, "%s:%d Fatal Error: %s", "NEXNotifyAPI.h", SourceLines::kFatalError,
               exception.what());
    }
}
