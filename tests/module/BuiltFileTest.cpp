// Reads the built libraries as the web-API server meets them: what they export and import, their name, their
// tables' bytes.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <tuple>

#include "kivocore/exec.h"
#include "kivocore/file.h"
#include "sysnotify/nstring.h"
#include "webapi/APIRequest.h"
#include "webapi/APIResponse.h"
#include "webapi/APITable.h"

namespace KIVO::Test {
namespace {

/// What the shell command prints of the library, which it knows as "$FILE".
std::string OutputOf(const std::string& command, const char* file) {
    setenv("FILE", file, 1);
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> chunk;
    while (const size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe.get())) {
        output.append(chunk.data(), count);
    }
    return output;
}

class BuiltFile : public testing::TestWithParam<const char*> {
protected:
    const std::unique_ptr<void, int (*)(void*)> m_library{dlopen(GetParam(), RTLD_NOW | RTLD_LOCAL),
                                                          &dlclose};
};

TEST_P(BuiltFile, ExportsFourSymbolsUnderItsName) {
    EXPECT_EQ(OutputOf(NM " -D --defined-only --format=posix \"$FILE\" | cut -d ' ' -f 1 | LC_ALL=C sort",
                       GetParam()),
              "GetAPICheckTable\nGetAPITable\ngCheckTable\ngTable\n");
    EXPECT_EQ(OutputOf(READELF " -d \"$FILE\" | sed -n 's/.*soname: //p'", GetParam()),
              "[KIVO.Core.NEXNotify.so]\n");
}

TEST(BuiltFileProduct, ImportsOnlyThePlatformsOperations) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "With AddressSanitizer its runtime stands in front of the C library's functions.";
#endif
    // Of the others, the C and C++ libraries' have a version; those with two underscores are a sanitizer's.
    EXPECT_EQ(
        OutputOf(NM " -D --undefined-only --demangle \"$FILE\" | sed -E '"
                    "/@|^ *w /d; s/^ *U //; /^(typeinfo for |vtable for )?(Json|simdjson)::|^sqlite3_|^__/d; "
                    "s/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> "
                    ">/std::string/g; "
                    "s/\\[abi:cxx11\\]//; s/ >/>/g' | LC_ALL=C sort",
                 PRODUCT_FILE),
        OutputOf("sed '/^#/d' \"$FILE\"", OPERATIONS_FILE));
}

TEST_P(BuiltFile, IsHardened) {
    const std::string headers = OutputOf(READELF " -dlW \"$FILE\"", GetParam());
    EXPECT_NE(headers.find("GNU_RELRO"), std::string::npos) << headers;
    EXPECT_NE(headers.find("BIND_NOW"), std::string::npos) << headers;
    const std::string imports = OutputOf(NM " -D --undefined-only \"$FILE\"", GetParam());
    EXPECT_NE(imports.find("__stack_chk_fail"), std::string::npos) << imports;
#ifdef NDEBUG  // _FORTIFY_SOURCE wants an optimised build
    EXPECT_NE(imports.find("__syslog_chk"), std::string::npos) << imports;
#endif
}

TEST(BuiltFileProduct, LeavesWhereItsLibrariesAreToTheLoader) {
    const std::string paths = " | sed -n 's/.*RU*N*PATH.*\\[/[/p' | LC_ALL=C sort -u";
    EXPECT_EQ(OutputOf(READELF " -d \"$FILE\"" + paths, PRODUCT_FILE), "");
    // The others' folders are those beside the file itself, never the current one.
    EXPECT_EQ(OutputOf("cd \"${FILE%/*}\" && " READELF " -d *.so dev/*.so ../bin/*" + paths, PRODUCT_FILE),
              "[$ORIGIN/../lib]\n[$ORIGIN/..]\n[$ORIGIN]\n");
}

/// Eight bytes of a row.
std::uint64_t WordAt(const void* table, size_t offset) {
    std::uint64_t word = 0;
    std::memcpy(&word, static_cast<const char*>(table) + offset, sizeof word);
    return word;
}

std::string TextAt(const void* table, size_t offset) {
    return reinterpret_cast<const char*>(WordAt(table, offset));  // NOLINT(performance-no-int-to-ptr)
}

TEST_P(BuiltFile, HasTheTablesBytes) {
    ASSERT_TRUE(m_library) << dlerror();
    using Names = std::array<std::string, 3>;
    for (const auto& [name, accessor, rowSize, apis] :
         {std::tuple("gTable", "GetAPITable", size_t{32}, Names{"", ".Strings", ".MailContent"}),
          {"gCheckTable", "GetAPICheckTable", size_t{48}, {".MailContent", ".Strings", ""}}}) {
        SCOPED_TRACE(name);
        const void* table = dlsym(m_library.get(), name);
        const auto getTable = reinterpret_cast<const void* (*)()>(dlsym(m_library.get(), accessor));
        ASSERT_TRUE(table && getTable);
        EXPECT_EQ(getTable(), table);
        for (size_t row = 0; row < 3; ++row) {
            const size_t offset = row * rowSize;
            EXPECT_EQ(TextAt(table, offset), "KIVO.Core.NEXNotify" + apis[row]);
            EXPECT_EQ(WordAt(table, offset + 8), 1U);
            EXPECT_EQ(TextAt(table, offset + 16), apis[row].empty() ? "notify" : "get");
            EXPECT_NE(WordAt(table, offset + 24), 0U);
            for (size_t reserved = 32; reserved < rowSize; reserved += 8) {
                EXPECT_EQ(WordAt(table, offset + reserved), 0U);
            }
        }
        for (size_t offset = 3 * rowSize; offset < 4 * rowSize; offset += 8) {
            EXPECT_EQ(WordAt(table, offset), 0U) << "in the closing row";
        }
    }
}

/// The paths that the library under test hands to the platform, which this program stands in for.
std::set<std::string> g_paths;

int Note(const char* path, int result) {
    g_paths.insert(path);
    return result;
}

TEST_P(BuiltFile, HandsItsFixedPathsToThePlatform) {
    ASSERT_TRUE(m_library) << dlerror();
    const std::string root = GetParam() == std::string(DEV_FILE) ? "/appliance" : "";
    setenv("KIVO_ROOT", "/appliance", 1);
    g_paths.clear();
    const auto* table = static_cast<const APITableRow*>(dlsym(m_library.get(), "gTable"));
    for (; table->api != nullptr; ++table) {
        Json::Value parameters;
        parameters["action"] = "loadHaveNtAppList";
        parameters["pkgName"] = "Package";
        APIRequest request(parameters, "alice", "ger", false);
        APIResponse response;
        table->handler(&request, &response);
        if (response.GetData().isString()) {
            g_paths.insert(response.GetData().asString());
        }
    }
    EXPECT_EQ(g_paths, (std::set<std::string>{
                           root + "/usr/kivo/bin/notification_utils",
                           root + "/usr/kivo/etc/notification/mails",
                           root + "/usr/local/share/notification/config",
                           root + "/var/cache/texts/enu/notification_category",
                           root + "/var/cache/texts/enu/notification_category operater failed.",
                           root + "/var/cache/texts/ger/mails",
                       }));
}

INSTANTIATE_TEST_SUITE_P(, BuiltFile, testing::Values(PRODUCT_FILE, DEV_FILE),
                         [](const auto& test) { return test.index == 0 ? "Product" : "Dev"; });

}  // namespace
}  // namespace KIVO::Test

extern "C" {

#define EXPORTED __attribute__((visibility("default")))

EXPORTED uid_t geteuid() noexcept { return 0; }
EXPORTED gid_t getegid() noexcept { return 0; }
EXPORTED void syslog(int, const char*, ...) {}
EXPORTED void __syslog_chk(int, int, const char*, ...) {}  // with _FORTIFY_SOURCE

int KLIBCFileExist(const char* path) { return KIVO::Test::Note(path, 0); }

int KLIBCFileEnumSection(const char* path, KLIBCSzList**) { return KIVO::Test::Note(path, -1); }

int KLIBCExec(const char* path, const char*, const char*, const char*, const char*) {
    return KIVO::Test::Note(path, -1);
}

int KIVONotifyStringGetByPath(const char* path, const char*, NString*, int) {
    return KIVO::Test::Note(path, -1);
}

}  // extern "C"
