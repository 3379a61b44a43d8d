#include "module/Paths.h"

namespace KIVO::NEXNotify::Paths {

std::string MailsCatalogue(const std::string& language) { return "/var/cache/texts/" + language + "/mails"; }

std::string CategoryFile(const std::string& language) {
    return "/var/cache/texts/" + language + "/" + "notification_category";
}

std::string MailTemplates() { return "/usr/kivo/etc/notification/mails"; }

std::string PackageConfiguration() { return "/usr/local/share/notification/config"; }

std::string NotificationTool() { return "/usr/kivo/bin/notification_utils"; }

}  // namespace KIVO::NEXNotify::Paths
