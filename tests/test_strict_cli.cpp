// Damaged input through the `meridian` tool: every fault is one "error:"
// line naming the file and the fault, exit code 1, nothing new on disk and
// an earlier output left byte for byte as it was. Ordinary variants of a
// head read the same as the plain head, and a full disk loses nothing.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "blendshape/backend_files.h"
#include "fixtures.h"
#include "io/strict_mesh.h"

namespace {

namespace fs = std::filesystem;
namespace km = kestrel::meridian;
using meridian::testing::readBytes;
using meridian::testing::runTool;
using meridian::testing::TempDir;
using meridian::testing::ToolRun;

using Edit = std::function<std::string(const std::string&)>;

// The text up to the start of its `line`-th line (1-based) that starts with `prefix`.
std::string cutBefore(const std::string& text, const std::string& prefix, int line) {
    size_t at = 0;
    for (int seen = 0;; at = text.find('\n', at) + 1) {
        if (text.compare(at, prefix.size(), prefix) == 0 && ++seen == line)
            return text.substr(0, at);
    }
}

// The first half of `text`, cut at a line end.
std::string firstHalf(const std::string& text) {
    return text.substr(0, text.find('\n', text.size() / 2) + 1);
}

// `text` with its `line`-th line (1-based) replaced.
std::string replaceLine(const std::string& text, int line, const std::string& with) {
    size_t start = 0;
    for (int k = 1; k < line; ++k) start = text.find('\n', start) + 1;
    return text.substr(0, start) + with + text.substr(text.find('\n', start));
}

// The sample head as a binary PLY: comments, a double x y z and an extra
// colour property per vertex.
std::string binaryHead(const km::StrictMesh& head, bool bigEndian) {
    std::string bytes =
        std::string("ply\nformat ") + (bigEndian ? "binary_big_endian" : "binary_little_endian") +
        " 1.0\ncomment written by a scanner\nelement vertex " + std::to_string(head.vertexCount()) +
        "\nproperty double x\nproperty double y\nproperty double z\n"
        "comment colour\nproperty uchar red\nend_header\n";
    for (int64_t j = 0; j < head.vertexCount(); ++j) {
        for (int r = 0; r < 3; ++r) {
            const double value = head.vertices[static_cast<size_t>(3 * j + r)];
            char raw[8];
            std::memcpy(raw, &value, 8);
            if (bigEndian) std::reverse(raw, raw + 8);
            bytes.append(raw, 8);
        }
        bytes += '\x7f';
    }
    return bytes;
}

std::set<std::string> listing(const std::string& dir) {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        names.insert(entry.path().lexically_relative(dir).string());
    return names;
}

int errorLines(const std::string& output) {
    int count = 0;
    for (size_t at = output.find("error:"); at != std::string::npos;
         at = output.find("error:", at + 1))
        ++count;
    return count;
}

class StrictCli : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        model_ = new TempDir();
        const ToolRun demo = runTool("demo --no-blendshapes --out " + model_->str());
        ASSERT_EQ(demo.exitCode, 0) << demo.output;
        // Blendshape files of the right sizes, all zeros (sparse): enough for
        // the model check, which runs before the data is loaded.
        namespace bs = km::blendshape;
        const auto sparse = [](const std::string& path, const bs::MatrixFileEntry& entry) {
            fs::create_directories(fs::path(path).parent_path());
            std::ofstream(path, std::ios::binary).close();
            fs::resize_file(path, 8ull * entry.rows * entry.cols);
        };
        for (const bs::MatrixFileEntry& entry : bs::kBackendFiles)
            sparse(model_->file(std::string("BS/") + entry.name), entry);
        for (const bs::RegionEntry& region : bs::kRegions)
            for (const bs::MatrixFileEntry& entry : {region.all, region.fixed, region.weights})
                sparse(model_->file(std::string("BS/") + region.directory + entry.name), entry);
    }
    static void TearDownTestSuite() {
        delete model_;
        model_ = nullptr;
    }
    static TempDir* model_;
};
TempDir* StrictCli::model_ = nullptr;

// One command of the tool with the output it leaves behind on success.
struct Command {
    std::string arguments;  // with {model}, {in} and {out} to fill in
    std::string earlier;    // an output file that exists before the run
};

std::string fill(std::string text, const std::string& model, const std::string& in,
                 const std::string& out) {
    for (const auto& [key, value] :
         {std::pair<std::string, std::string>{"{model}", model}, {"{in}", in}, {"{out}", out}})
        for (size_t at = text.find(key); at != std::string::npos; at = text.find(key))
            text.replace(at, key.size(), value);
    return text;
}

TEST_F(StrictCli, EveryDamagedInputIsOneErrorAndLeavesTheDiskAsItWas) {
    const Command swap{"swap --model {model} --in {in} --out {out}/head_ue4.obj", "head_ue4.obj"};
    const Command exportAsset{
        "export --model {model} --in {in} --out {out}/head.glb --skip "
        "blendshapes --preview {out}/head.png",
        "head.glb"};
    const Command exportAll{"export --model {model} --in {in} --out {out}/head.glb", "head.glb"};
    const Command eyes{"eyes --model {model} --in {in} --out-dir {out}", "head_with_eyes.obj"};
    const Command tbn{"tbn --model {model} --in {in} --out {out}/frames.ply --preview {out}/n.png",
                      "frames.ply"};
    const Command blendshapes{"blendshapes --model {model} --in {in} --out-dir {out}",
                              "bs_0_neutral.obj"};

    const std::string kHead = "<head.obj>", kPlyHead = "<head.ply>";
    const struct {
        const char* fault;
        Command command;
        std::string file;  // model file to damage, or the head given as input
        Edit damage;
        std::string says;
    } cases[] = {
        {"truncated OBJ head", swap, kHead,
         [](const std::string& t) { return cutBefore(t, "v ", 9000); },
         "8999 vertices; a head in the template topology has 20481"},
        {"nan in an OBJ head", swap, kHead,
         [](const std::string& t) { return replaceLine(t, 5, "v nan 1 2"); },
         "line 5: vertex 4 has a non-finite coordinate 'nan'"},
        {"inf in an OBJ head", exportAsset, kHead,
         [](const std::string& t) { return replaceLine(t, 5, "v 1 inf 2"); }, "'inf'"},
        {"abc in an OBJ head", eyes, kHead,
         [](const std::string& t) { return replaceLine(t, 5, "v 1 2 abc"); }, "'abc'"},
        {"overflow in an OBJ head", tbn, kHead,
         [](const std::string& t) { return replaceLine(t, 5, "v 1e999 2 3"); }, "'1e999'"},
        {"quad in a head", swap, kHead, [](const std::string& t) { return t + "f 1 2 3 4\n"; },
         "a face of 4 corners; only triangles are read"},
        {"face index out of range in a head", swap, kHead,
         [](const std::string& t) { return t + "f 1 2 20482\n"; }, "vertex index 20482"},
        {"truncated PLY head", exportAsset, kPlyHead, firstHalf,
         "declares 20481 vertex elements, the body ends after"},
        {"binary PLY head cut short", swap, kPlyHead,
         [](const std::string& t) {
             const km::StrictMesh head = km::parseStrictMesh(t, "h.ply");
             const std::string bytes = binaryHead(head, false);
             return bytes.substr(0, bytes.size() - 100);
         },
         "the body ends after 20477"},
        {"nan in a PLY head", exportAsset, kPlyHead,
         [](const std::string& t) { return replaceLine(t, 10, "nan 0 0"); },
         "line 10: vertex 2 has a non-finite coordinate 'nan'"},
        {"truncated idx_head2ue4.corresp", exportAsset, "idx_head2ue4.corresp", firstHalf,
         "the header declares 20864 entries, the body ends after"},
        {"idx_head2ue4.corresp cut inside a line", swap, "idx_head2ue4.corresp",
         [](const std::string& t) { return firstHalf(t) + "17"; }, "does not have 2 fields"},
        {"template corner out of range", swap, "idx_tavi2head.corresp",
         [](const std::string& t) { return replaceLine(t, 8, "2 1 1 2 20481 0.5 0.25 0.25"); },
         "names source vertex 20481, outside 0..20480"},
        {"a weight that is not finite", swap, "idx_tavi2head.corresp",
         [](const std::string& t) { return replaceLine(t, 8, "1 1 0 1 2 nan 0 0"); },
         "non-finite weight 'nan'"},
        {"truncated ue4_head.obj ending in a bare f", exportAsset, "ue4_head.obj",
         [](const std::string& t) { return cutBefore(t, "f ", 20000) + "f\n"; },
         "a face of 0 corners"},
        {"truncated eyeball/new_eye.ply", eyes, "eyeball/new_eye.ply", firstHalf,
         "the header declares 770 vertex elements, the body ends after"},
        {"truncated eyeball/new_eye.ply", exportAsset, "eyeball/new_eye.ply", firstHalf,
         "(leave the eyes out with --skip eyes)"},
        {"eyeball weights with nan", eyes, "eyeball/w_head2eyeball_left.corresp",
         [](const std::string& t) { return replaceLine(t, 3, "nan"); },
         "line 3: weight 2 is not a finite number"},
        {"eyeball weights one short", eyes, "eyeball/w_head2eyeball_left.corresp",
         [](const std::string& t) { return t.substr(0, t.rfind('\n', t.size() - 2) + 1); },
         "weights, but eyeball/idx_head2eyeball_left.corresp needs"},
        {"side list out of range", eyes, "eyelash/idx_eyelash_left.txt",
         [](const std::string& t) { return t + "188\n"; },
         "entry 100 names mesh vertex 188, outside 0..187"},
        {"eyelash blendshape one vertex short", eyes, "eyelash/eyelash_bs01.obj",
         [](const std::string& t) { return "v 0 0 0\n" + t; },
         "189 vertices, but eyelash/eyelash_tri.obj needs 188"},
        {"export-order eyeball mesh of another size", exportAsset, "eyeball/ue4_eyeball.obj",
         [](const std::string& t) { return "v 0 0 0\n" + t; },
         "vertices, but eyeball/idx_eyeball2ue4.corresp needs 1540"},
        {"tangent-frame template emptied", tbn, "TBN/std_20481_with_UV_F_TF.obj",
         [](const std::string&) { return std::string(); },
         "std_20481_with_UV_F_TF.obj: 0 vertices"},
        {"blendshape matrix 8 bytes long", blendshapes, "BS/kp_86_h_r_1_c_86.bin",
         [](const std::string& t) { return t + std::string(8, '\0'); },
         "696 bytes, but 1 x 86 doubles take exactly 688"},
        {"blendshape matrix short", exportAll, "BS/mask/nose/idx_fix_r_1_c_657.bin",
         [](const std::string& t) { return t.substr(8); },
         "5248 bytes, but 1 x 657 doubles take exactly 5256 (leave the blendshapes out"},
        {"blendshape weights with nan", blendshapes, "BS/mask/ear_left/weight_in3_r_3_c_106.bin",
         [](const std::string& t) {
             const double nan = std::nan("");
             std::string bytes = t;
             std::memcpy(bytes.data() + 8 * 5, &nan, 8);
             return bytes;
         },
         "row 0, column 5 is not finite"},
    };
    TempDir scratch;
    const std::string plainHead = readBytes(model_->file("sample_head.obj"));
    const std::string plainPly = readBytes(model_->file("sample_head.ply"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault + std::string(" through ") + c.command.arguments);
        std::string in = model_->file("sample_head.obj"), damaged, restore;
        if (c.file == kHead || c.file == kPlyHead) {
            in = scratch.write(c.file == kHead ? "in/head.obj" : "in/head.ply",
                               c.damage(c.file == kHead ? plainHead : plainPly));
        } else {
            damaged = model_->file(c.file);
            restore = readBytes(damaged);
            std::ofstream(damaged, std::ios::binary) << c.damage(restore);
        }
        TempDir out;
        const std::string earlier = out.write(c.command.earlier, "an earlier output\n");
        const std::set<std::string> before = listing(out.str());
        const ToolRun run = runTool(fill(c.command.arguments, model_->str(), in, out.str()));
        if (!damaged.empty()) std::ofstream(damaged, std::ios::binary) << restore;

        EXPECT_EQ(run.exitCode, 1) << run.output;
        EXPECT_EQ(errorLines(run.output), 1) << run.output;
        const std::string named = c.file.front() == '<' ? in : c.file;
        EXPECT_NE(run.output.find("error: "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(named), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
        EXPECT_EQ(listing(out.str()), before);
        EXPECT_EQ(readBytes(earlier), "an earlier output\n");
    }
}

TEST_F(StrictCli, RefusedOptionsAndTargetsLeaveTheDiskAsItWas) {
    TempDir out;
    const std::string head = model_->file("sample_head.obj");
    fs::create_directories(out.file("folder.glb"));
    fs::create_symlink("/dev/null", out.file("null.glb"));
    fs::create_symlink("/dev/null", out.file("null.png"));
    fs::create_symlink(out.file("kept.obj"), out.file("link.obj"));
    out.write("kept.obj", "kept\n");
    const struct {
        std::string arguments, says;
    } cases[] = {
        {"export --skip blendshapes --metres-per-unit nan --out " + out.file("a.glb"),
         "--metres-per-unit must be a finite number above 0, not nan"},
        {"export --skip blendshapes --metres-per-unit inf --out " + out.file("a.glb"),
         "--metres-per-unit must be a finite number above 0"},
        {"export --skip blendshapes --out " + out.file("null.glb"),
         "null.glb: exists and is not a regular file"},
        {"export --skip blendshapes --out " + out.file("folder.glb"),
         "folder.glb: exists and is not a regular file"},
        {"swap --out " + out.file("link.obj"), "link.obj: exists and is not a regular file"},
        {"swap --out -", "cannot write to standard output"},
        {"tbn --out " + out.file("f.ply") + " --preview " + out.file("null.png"),
         "null.png: exists and is not a regular file"},
    };
    const std::set<std::string> before = listing(out.str());
    for (const auto& c : cases) {
        const ToolRun run = runTool(c.arguments + " --model " + model_->str() + " --in " + head);
        EXPECT_EQ(run.exitCode, 1) << c.arguments << "\n" << run.output;
        EXPECT_EQ(errorLines(run.output), 1) << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
        EXPECT_EQ(listing(out.str()), before) << c.arguments;
    }
    EXPECT_EQ(readBytes(out.file("kept.obj")), "kept\n");
    EXPECT_TRUE(fs::is_symlink(out.file("null.glb")));
    for (const char* command : {"swap", "tbn", "export", "eyes", "blendshapes"}) {
        const ToolRun help = runTool(std::string(command) + " --help");
        EXPECT_NE(help.output.find("\"-\" is not standard output"), std::string::npos)
            << command << "\n"
            << help.output;
    }
}

TEST_F(StrictCli, OrdinaryVariantsOfAHeadGiveThePlainHeadsResult) {
    const std::string plain = readBytes(model_->file("sample_head.obj"));
    const km::StrictMesh head = km::readStrictMesh(model_->file("sample_head.ply"));
    std::string withNormals, withColours, crlf;
    for (size_t at = 0; at < plain.size();) {
        const size_t end = plain.find('\n', at);
        const std::string line = plain.substr(at, end - at);
        withNormals += "vn 0 0 1\n" + line + "\n";
        withColours += line + (line.rfind("v ", 0) == 0 ? " 0.5 0.25 1\n" : "\n");
        crlf += line + "\r\n";
        at = end + 1;
    }
    TempDir dir;
    const std::string variants[] = {
        dir.write("normals.obj", "o head\ng face\ns off\nusemtl skin\n" + withNormals),
        dir.write("colours.obj", withColours),
        dir.write("crlf.obj", crlf),
        dir.write("little.ply", binaryHead(head, false)),
        dir.write("big.ply", binaryHead(head, true)),
        model_->file("sample_head.ply"),
    };
    const ToolRun reference =
        runTool("swap --model " + model_->str() + " --in " + model_->file("sample_head.obj") +
                " --out " + dir.file("plain_ue4.obj"));
    ASSERT_EQ(reference.exitCode, 0) << reference.output;
    const std::string expected = readBytes(dir.file("plain_ue4.obj"));
    for (const std::string& variant : variants) {
        const ToolRun run = runTool("swap --model " + model_->str() + " --in " + variant +
                                    " --out " + dir.file("variant_ue4.obj"));
        ASSERT_EQ(run.exitCode, 0) << variant << "\n" << run.output;
        EXPECT_EQ(readBytes(dir.file("variant_ue4.obj")), expected) << variant;
    }
}

// A full disk, made deterministic: the tool runs in a child whose file-size
// limit is far below its output. The tool ignores SIGXFSZ itself, so the
// write fails with EFBIG instead of ending the process.
TEST_F(StrictCli, AFullDiskKeepsTheEarlierOutputAndLeavesNoTemporary) {
    TempDir out, scratch;
    const std::string errors = scratch.file("stderr");
    const struct {
        std::vector<std::string> arguments;
        std::string output;
    } cases[] = {
        {{"swap", "--out", out.file("head_ue4.obj")}, "head_ue4.obj"},
        {{"export", "--skip", "blendshapes", "--out", out.file("head.glb"), "--preview",
          out.file("head.png")},
         "head.glb"},
        {{"eyes", "--out-dir", out.str()}, "head_with_eyes.obj"},
        // Two outputs of one run: neither appears.
        {{"tbn", "--out", out.file("frames.ply"), "--preview", out.file("normals.png")},
         "frames.ply"},
    };
    for (const auto& c : cases) {
        const std::string earlier = out.write(c.output, "an earlier output\n");
        const std::set<std::string> before = listing(out.str());
        std::vector<std::string> arguments{MERIDIAN_CLI_PATH};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        for (const std::string& a : {std::string("--model"), model_->str(), std::string("--in"),
                                     model_->file("sample_head.obj")})
            arguments.push_back(a);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const rlimit limit{64 * 1024, 64 * 1024};
            setrlimit(RLIMIT_FSIZE, &limit);
            std::vector<char*> argv;
            for (std::string& a : arguments) argv.push_back(a.data());
            argv.push_back(nullptr);
            // The tool's progress goes nowhere, its error line to a file.
            if (!freopen("/dev/null", "w", stdout) || !freopen(errors.c_str(), "w", stderr))
                _exit(126);
            execv(argv[0], argv.data());
            _exit(127);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << c.output;
        EXPECT_EQ(WEXITSTATUS(status), 1) << c.output;
        EXPECT_EQ(errorLines(readBytes(errors)), 1) << readBytes(errors);
        EXPECT_NE(readBytes(errors).find("cannot write (write: File too large)"), std::string::npos)
            << readBytes(errors);
        EXPECT_EQ(readBytes(earlier), "an earlier output\n") << c.output;
        EXPECT_EQ(listing(out.str()), before) << c.output;
    }
}

}  // namespace
