#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "kivocore/Export.h"

namespace KIVO::Appliance {

/// What a catalogue gives for one tag; nothing for a key that its section does not have.
struct CatalogueEntry {
    std::optional<std::string> category;
    std::optional<std::string> level;
    std::optional<std::string> message;
    std::optional<std::string> altMessage;
    std::optional<std::string> mail;
    /// The title, in the catalogue's language, of the category to which the tag's events belong.
    std::optional<std::string> group;
    /// The application that raises the tag's events.
    std::optional<std::string> appId;
};

/// A text catalogue of one language, parsed: a GLib key file with one group a tag.
struct Catalogue {
    /// In the file's order.
    std::vector<std::string> tags;
    std::unordered_map<std::string, CatalogueEntry> entries;
};

/// The catalogue at the path or behind the open descriptor, parsed at most once as long as the file stays the
/// same. Null when it cannot be read or is no key file. Safe on any thread.
KIVO_PUBLIC std::shared_ptr<const Catalogue> LoadCatalogue(const std::string& path);
KIVO_PUBLIC std::shared_ptr<const Catalogue> LoadCatalogue(int descriptor);

/// The codes of the languages that have a catalogue in the text cache, sorted.
KIVO_PUBLIC std::vector<std::string> InstalledLanguages();

}  // namespace KIVO::Appliance
