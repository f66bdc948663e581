// The atomic writer: what each kind of target and failure leaves on disk.
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "io/atomic_file.h"
#include "io/input_error.h"

namespace {

namespace fs = std::filesystem;
namespace km = kestrel::meridian;
using meridian::testing::readBytes;
using meridian::testing::TempDir;

std::set<std::string> listing(const TempDir& dir) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        names.insert(entry.path().filename().string());
    return names;
}

TEST(AtomicFile, EachTargetAndFailureLeavesTheDiskAsDocumented) {
    using Write = std::function<void(const std::string& path)>;
    const Write plain = [](const std::string& path) { km::writeFileAtomically(path, "new\n"); };
    const Write failingWriter = [](const std::string& path) {
        km::writeFileAtomicallyVia(path, [](const std::string& temporary) {
            std::ofstream(temporary) << "half";
            return false;
        });
    };
    const Write set = [](const std::string& path) {
        km::AtomicFileSet files;
        files.add(path + ".first", "first\n");
        files.add(path, "new\n");
        files.commit();
    };
    struct Case {
        const char* name;
        std::function<void(TempDir&)> prepare;  // makes "out" (and its neighbours)
        Write write;
        bool refused;
        km::InputFault fault;
        std::string contents;  // of "out" afterwards ("" when absent)
    };
    const Case cases[] = {
        {"new file", [](TempDir&) {}, plain, false, {}, "new\n"},
        {"earlier file replaced",
         [](TempDir& d) { d.write("out", "old\n"); },
         plain,
         false,
         {},
         "new\n"},
        {"written by a writer of its own",
         [](TempDir&) {},
         [](const std::string& path) {
             km::writeFileAtomicallyVia(path, [](const std::string& temporary) {
                 std::ofstream(temporary) << "new\n";
                 return true;
             });
         },
         false,
         {},
         "new\n"},
        {"failing writer", [](TempDir& d) { d.write("out", "old\n"); }, failingWriter, true,
         km::InputFault::writeFailed, "old\n"},
        {"directory", [](TempDir& d) { fs::create_directory(d.path() / "out"); }, plain, true,
         km::InputFault::notRegularTarget, ""},
        {"link to a file",
         [](TempDir& d) {
             d.write("kept", "kept\n");
             fs::create_symlink(d.file("kept"), d.file("out"));
         },
         plain, true, km::InputFault::notRegularTarget, "kept\n"},
        {"pipe", [](TempDir& d) { ::mkfifo(d.file("out").c_str(), 0600); }, plain, true,
         km::InputFault::notRegularTarget, ""},
        {"missing folder", [](TempDir&) {},
         [](const std::string& path) { km::writeFileAtomically(path + "/below", "x"); }, true,
         km::InputFault::writeFailed, ""},
        {"set with one target refused: nothing of the set written",
         [](TempDir& d) { fs::create_directory(d.path() / "out"); }, set, true,
         km::InputFault::notRegularTarget, ""},
        {"set written whole", [](TempDir&) {}, set, false, {}, "new\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        c.prepare(dir);
        const std::set<std::string> before = listing(dir);
        try {
            c.write(dir.file("out"));
            EXPECT_FALSE(c.refused);
        } catch (const km::InputError& e) {
            EXPECT_TRUE(c.refused) << e.what();
            EXPECT_EQ(e.fault(), c.fault) << e.what();
        }
        if (c.refused) {
            EXPECT_EQ(listing(dir), before);
        }
        if (fs::is_regular_file(dir.file("out"))) {
            EXPECT_EQ(readBytes(dir.file("out")), c.contents);
        } else {
            EXPECT_TRUE(c.contents.empty());
        }
    }
}

}  // namespace
