// The module's paths for every machine that is no appliance: the appliance's own, below the appliance root.

#include "module/Paths.h"
#include "platform/kivocore/ApplianceRoot.h"

namespace KIVO::NEXNotify::Paths {

using Appliance::Rooted;

std::string MailsCatalogue(const std::string& language) {
    return Rooted("/var/cache/texts/" + language + "/mails");
}

std::string CategoryFile(const std::string& language) {
    return Rooted("/var/cache/texts/" + language + "/" + "notification_category");
}

std::string MailTemplates() { return Rooted("/usr/kivo/etc/notification/mails"); }

std::string PackageConfiguration() { return Rooted("/usr/local/share/notification/config"); }

std::string NotificationTool() { return Rooted("/usr/kivo/bin/notification_utils"); }

}  // namespace KIVO::NEXNotify::Paths
