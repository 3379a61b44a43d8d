#pragma once

// Private to the stand-ins and the programs around them; the module never includes it.

#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kivocore/Export.h"

namespace KIVO::Appliance {

/// What a catalogue gives for one tag; null for a key that its section does not have.
struct CatalogueEntry {
    const char* category;
    const char* level;
    const char* message;
    const char* altMessage;
    const char* mail;
    /// The title, in the catalogue's language, of the category to which the tag's events belong.
    const char* group;
    /// The application that raises the tag's events.
    const char* appId;
};

/// A text catalogue of one language, parsed: a GLib key file with one group a tag.
struct Catalogue {
    /// In the file's order.
    std::vector<const char*> tags;
    std::unordered_map<std::string_view, CatalogueEntry> entries;
    /// Holds all the texts, those of a tag side by side: who goes through thousands finds them fast.
    std::pmr::monotonic_buffer_resource texts;
};

/// The catalogue at the path or behind the open descriptor, parsed at most once as long as the file stays the
/// same. Null when it cannot be read or is no key file. Safe on any thread.
[[nodiscard]] KIVO_PUBLIC std::shared_ptr<const Catalogue> LoadCatalogue(const std::string& path);
[[nodiscard]] KIVO_PUBLIC std::shared_ptr<const Catalogue> LoadCatalogue(int descriptor);

/// A piece of a text: a placeholder, "{NAME}" without braces or white space in its name, or what stands
/// between two.
struct TextPiece {
    std::string_view text;
    bool isPlaceholder;
};

/// The pieces of a catalogue's text, which they borrow.
KIVO_PUBLIC std::vector<TextPiece> PiecesOf(std::string_view text);

/// Where the catalogue of a language lies, as a path of this machine. The code goes into the path unchanged.
KIVO_PUBLIC std::string CataloguePath(const std::string& language);

/// The codes of the languages that have a catalogue in the text cache, sorted.
KIVO_PUBLIC std::vector<std::string> InstalledLanguages();

}  // namespace KIVO::Appliance
