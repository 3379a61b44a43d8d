// The category file of a language: where it lies, and how it comes to be there.

#include "kivocore/exec.h"
#include "kivocore/file.h"
#include "module/Log.h"
#include "module/Paths.h"
#include "module/RunAs.h"
#include "module/SourceLines.h"
#include "notify/Notify.h"

namespace KIVO::NEXNotify {

std::string Notify::GetNotifyCategoryFile(const std::string& language) {
    std::string path = Paths::CategoryFile(language);
    if (KLIBCFileExist(path.c_str())) {
        return path;
    }
    IF_RUN_AS2("root", SourceLines::kGenerateCategoryFileAsRoot) {
        // Whether the tool did its work is seen by the file alone.
        static_cast<void>(KLIBCExec(Paths::NotificationTool().c_str(), "--gen_category_file",
                                    language.c_str(), nullptr, nullptr));
    }
    if (!KLIBCFileExist(path.c_str())) {
        LOG_FAILURE_AT(SourceLines::kCategoryFileNotFound, "%s not found.", path.c_str());
    }
    return path;
}

}  // namespace KIVO::NEXNotify
