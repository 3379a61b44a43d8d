#pragma once

// Where the module's files lie: the module's only place that spells a path. Paths.cpp gives the appliance's
// own absolute paths; a build for other machines links its own definitions of the same functions.

#include <string>

namespace KIVO::NEXNotify::Paths {

/// The text catalogue of a language: one section per notification tag. The code goes into the path unchanged.
std::string MailsCatalogue(const std::string& language);

/// The category file of a language, as the notification tool writes it. The code goes into the path
/// unchanged.
std::string CategoryFile(const std::string& language);

/// The mail templates that go before every language's catalogue.
std::string MailTemplates();

/// Which notification tags each installed package declares.
std::string PackageConfiguration();

/// The notification tool, which generates category files.
std::string NotificationTool();

/// The language whose catalogue names the known tags and whose categories are the keys of every language's.
inline constexpr char kEnglish[] = "enu";

}  // namespace KIVO::NEXNotify::Paths
