// vorlo-bench: measures every tool of vorlo-mcp through the built executable over stdio, on
// generated libraries of known content, side by side with the floor of a scan, and on inputs a hostile
// client or library chooses; checks every answer and prints the tables. A failed check makes the
// exit status 1.
//
// Usage: vorlo-bench [--notes N[,N...]] [--reps R] [--library-dir DIR] [--memory-dir DIR] [--server PATH] [--quick]
//                    [--hostile | --no-hostile] [--hostile-scale F]

#include "Floor.h"
#include "HostileInputs.h"
#include "LibraryGenerator.h"
#include "ServerClient.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>
#ifdef __linux__
#include <linux/magic.h>
#include <sys/vfs.h>
#endif

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;
using namespace vorlo::bench;

constexpr const char* kUsage =
    "usage: vorlo-bench [--notes N[,N...]] [--reps R] [--library-dir DIR] [--memory-dir DIR] [--server PATH] [--quick]\n"
    "                   [--hostile | --no-hostile] [--hostile-scale F]\n"
    "  --notes        library sizes, default 10000,50000 (300 with --quick)\n"
    "  --reps         timed repetitions of each operation after one warm-up, default 5\n"
    "  --library-dir  where libraries are kept and reused, default $TMPDIR/vorlo-bench\n"
    "  --memory-dir   a tmpfs folder for the writing tools' cost without fsync and for the hostile\n"
    "                 inputs, default /dev/shm; \"none\" leaves the former out and puts the latter on disk\n"
    "  --server       the executable to measure, default the one built beside this program\n"
    "  --quick        no warm-up; a fresh library in a temporary folder, removed afterwards\n"
    "  --hostile      only the hostile inputs, each at two sizes (left out by default with --quick)\n"
    "  --no-hostile   no hostile inputs\n"
    "  --hostile-scale  a factor on the hostile inputs' sizes, default 1 (the tag note stops at 16 MiB)\n";

// The folder of the library that the benchmark writes into and empties again.
constexpr const char* kScratchFolder = "Bench Scratch";
constexpr double kMiB = 1024.0 * 1024.0;

struct Options {
    std::vector<std::uint64_t> sizes;
    int reps = 5;
    std::string libraryDir;
    std::string memoryDir = "/dev/shm";
    std::string server = VORLO_BENCH_SERVER;
    bool quick = false;
    enum class Hostile { Default, Only, None } hostile = Hostile::Default;
    double hostileScale = 1.0;
};

std::optional<Options> parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == "--quick") {
            options.quick = true;
        } else if (option == "--notes" && hasValue) {
            std::stringstream list(argv[++i]);
            for (std::string size; std::getline(list, size, ',');) {
                const long long value = std::atoll(size.c_str());
                if (value < 10) return std::nullopt;
                options.sizes.push_back(static_cast<std::uint64_t>(value));
            }
        } else if (option == "--reps" && hasValue) {
            options.reps = std::atoi(argv[++i]);
            if (options.reps < 1) return std::nullopt;
        } else if (option == "--library-dir" && hasValue) {
            options.libraryDir = argv[++i];
        } else if (option == "--memory-dir" && hasValue) {
            options.memoryDir = argv[++i];
        } else if (option == "--server" && hasValue) {
            options.server = argv[++i];
        } else if (option == "--hostile") {
            options.hostile = Options::Hostile::Only;
        } else if (option == "--no-hostile") {
            options.hostile = Options::Hostile::None;
        } else if (option == "--hostile-scale" && hasValue) {
            options.hostileScale = std::atof(argv[++i]);
            if (!(options.hostileScale > 0)) return std::nullopt;
        } else {
            return std::nullopt;
        }
    }
    if (options.sizes.empty()) options.sizes = options.quick ? std::vector<std::uint64_t>{300} : std::vector<std::uint64_t>{10000, 50000};
    return options;
}

// ---- Small helpers ------------------------------------------------------------------------------

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string sha256Hex(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
    std::string hex;
    char pair[3];
    for (unsigned i = 0; i < length; ++i) {
        std::snprintf(pair, sizeof pair, "%02x", digest[i]);
        hex += pair;
    }
    return hex;
}

std::string base64(std::string_view bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                  reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(static_cast<std::size_t>(n));
    return out;
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::string formatSeconds(double seconds) {
    char text[32];
    if (seconds < 1e-3) std::snprintf(text, sizeof text, "%.0f µs", seconds * 1e6);
    else if (seconds < 0.1) std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    else if (seconds < 10) std::snprintf(text, sizeof text, "%.0f ms", seconds * 1e3);
    else std::snprintf(text, sizeof text, "%.1f s", seconds);
    return text;
}

std::string formatFixed(double value, int decimals) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

struct Samples {
    std::vector<double> seconds;
    double median() const {
        std::vector<double> sorted = seconds;
        std::sort(sorted.begin(), sorted.end());
        const std::size_t n = sorted.size();
        return n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2;
    }
    double min() const { return *std::min_element(seconds.begin(), seconds.end()); }
};

// Counts every check and reports each failure on standard error as it happens.
class Checks {
public:
    void expect(bool ok, const std::string& what) {
        ++count_;
        if (!ok) {
            ++failed_;
            std::cerr << "check failed: " << what << "\n";
        }
    }
    int count() const { return count_; }
    int failed() const { return failed_; }

private:
    int count_ = 0;
    int failed_ = 0;
};

// ---- The table ----------------------------------------------------------------------------------

struct Row {
    std::uint64_t notes = 0;
    std::string operation;
    std::string median, minimum, ratio, target, verdict;
};

std::size_t displayWidth(const std::string& text) {
    std::size_t width = 0;
    for (const unsigned char c : text) width += (c & 0xC0) != 0x80;
    return width;
}

void printTable(const std::vector<std::string>& heading, const std::vector<bool>& right,
                const std::vector<std::vector<std::string>>& cells) {
    std::vector<std::size_t> widths;
    for (const auto& cell : heading) widths.push_back(displayWidth(cell));
    for (const auto& line : cells)
        for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], displayWidth(line[i]));
    auto print = [&](const std::vector<std::string>& line) {
        std::cout << "|";
        for (std::size_t i = 0; i < line.size(); ++i) {
            const std::string pad(widths[i] - displayWidth(line[i]), ' ');
            std::cout << " " << (right[i] ? pad + line[i] : line[i] + pad) << " |";
        }
        std::cout << "\n";
    };
    print(heading);
    std::cout << "|";
    for (std::size_t i = 0; i < widths.size(); ++i)
        std::cout << (right[i] ? std::string(widths[i] + 1, '-') + ":" : ":" + std::string(widths[i] + 1, '-')) << "|";
    std::cout << "\n";
    for (const auto& line : cells) print(line);
}

void printTable(const std::vector<Row>& rows) {
    std::vector<std::vector<std::string>> cells;
    for (const auto& row : rows)
        cells.push_back({std::to_string(row.notes), row.operation, row.median, row.minimum, row.ratio, row.target, row.verdict});
    printTable({"notes", "operation", "median", "min", "× floor", "target", "verdict"},
               {true, false, true, true, true, false, false}, cells);
}

void writePreferences(const fs::path& file, const fs::path& library) {
    std::ofstream(file) << Json{{"libraryPath", fs::absolute(library).string()},
                                {"mcp", {{"enabled", true}, {"allowWriting", true}}}}
                               .dump(2)
                        << "\n";
}

// ---- One library size ---------------------------------------------------------------------------

// What the client knows about the note it rewrites: the revision it last saw.
struct ScratchNote {
    std::string path = std::string(kScratchFolder) + "/Scratch.md";
    std::string revision;
    int updates = 0;
};

struct Operation {
    std::string label;
    std::string tool;
    std::function<Json()> arguments;
    std::function<void(const Json& structured, const Json& result)> check;
    enum class Target { FloorShare, Read, Write } target;
};

class SizeRun {
public:
    SizeRun(const Options& options, std::uint64_t notes, const std::string& folder, Checks& checks)
        : options_(options), notes_(notes), folder_(folder), checks_(checks) {}

    std::vector<Row> run();

private:
    const Options& options_;
    std::uint64_t notes_;
    fs::path folder_;
    Checks& checks_;
    LibraryFacts facts_;
    fs::path library_;
    fs::path preferences_;
    ScratchNote scratch_;
    int warmUps() const { return options_.quick ? 0 : 1; }

    void prepare();
    Samples measureFloor(std::uint64_t expectedNotes, int passes);
    Samples measureStartUp();
    std::vector<Operation> operations();
    Samples measure(ServerClient& server, const Operation& operation);
    std::string memoryFolderUnusable(std::uint64_t neededBytes) const;
    std::vector<std::pair<Operation, Samples>> measureWritesInMemory(Samples& durable);
};

void SizeRun::prepare() {
    const auto start = Clock::now();
    std::cerr << "vorlo-bench: library of " << notes_ << " notes in " << folder_.string() << " ... " << std::flush;
    facts_ = prepareLibrary(folder_.string(), notes_, kDefaultSeed);
    std::cerr << "ready in " << formatSeconds(secondsSince(start)) << "\n";
    library_ = folder_ / "Library";
    preferences_ = folder_ / "Preferences.json";
    writePreferences(preferences_, library_);
    // The writing tools work in a folder of their own, emptied before and after, so a kept library
    // stays as generated.
    fs::remove_all(library_ / kScratchFolder);
    fs::create_directories(library_ / kScratchFolder);
    const std::string text = "---\ntitle: \"Scratch\"\ntags: [\"bench\"]\n---\nRewritten at every update.\n";
    std::ofstream(library_ / scratch_.path, std::ios::binary) << text;
    scratch_.revision = sha256Hex(text);
}

Samples SizeRun::measureFloor(std::uint64_t expectedNotes, int passes) {
    Samples samples;
    for (int i = 0; i < passes; ++i) {
        const auto start = Clock::now();
        const FloorPass pass = floorPass(library_.string());
        samples.seconds.push_back(secondsSince(start));
        checks_.expect(pass.notes == expectedNotes, "the floor read " + std::to_string(pass.notes) + " notes, expected " +
                                                        std::to_string(expectedNotes) + " (a stale library? delete " +
                                                        folder_.string() + ")");
    }
    return samples;
}

Samples SizeRun::measureStartUp() {
    Samples samples;
    for (int i = 0; i < warmUps() + options_.reps; ++i) {
        const auto start = Clock::now();
        ServerClient server(options_.server, preferences_.string());
        const std::string line = server.requestLine(
            "initialize", {{"protocolVersion", "2025-06-18"},
                           {"capabilities", Json::object()},
                           {"clientInfo", {{"name", "vorlo-bench"}, {"version", "1"}}}});
        const std::string reply = server.roundTrip(line, std::chrono::seconds(60));
        const double seconds = secondsSince(start);
        if (i >= warmUps()) samples.seconds.push_back(seconds);
        const Json parsed = Json::parse(reply, nullptr, false);
        checks_.expect(!parsed.is_discarded() && parsed.contains("result") &&
                           parsed["result"].value("protocolVersion", "") == "2025-06-18",
                       "initialize answers with the protocol version asked for: " + reply.substr(0, 200));
        checks_.expect(server.finish() == 0, "the server ends with status 0 at the end of its input");
    }
    return samples;
}

std::vector<Operation> SizeRun::operations() {
    using Target = Operation::Target;
    const std::uint64_t listed = facts_.notes + 1; // and the scratch note
    auto counts = [this](std::string what, std::uint64_t expected, std::uint64_t limit) {
        return [this, what, expected, limit](const Json& structured, const Json&) {
            const auto total = structured.at("total_matches").get<std::uint64_t>();
            checks_.expect(total == expected,
                           what + ": total_matches " + std::to_string(total) + ", expected " + std::to_string(expected));
            checks_.expect(structured.at("returned").get<std::uint64_t>() == std::min(expected, limit) &&
                               structured.at("notes").size() == std::min(expected, limit),
                           what + ": returned and notes agree with the limit");
        };
    };
    std::vector<Operation> ops;
    ops.push_back({"list_notes, no filter", "list_notes", [] { return Json::object(); },
                   counts("list_notes", listed, 50), Target::FloorShare});
    ops.push_back({"list_notes, folder filter", "list_notes", [this] { return Json{{"folder", facts_.folder}}; },
                   [this, counts](const Json& structured, const Json& result) {
                       counts("list_notes folder " + facts_.folder, facts_.folderNotes, 50)(structured, result);
                       for (const auto& note : structured.at("notes"))
                           checks_.expect(note.at("folder") == facts_.folder, "list_notes folder filter keeps only its folder");
                   },
                   Target::FloorShare});
    ops.push_back({"list_notes, tag filter", "list_notes", [this] { return Json{{"tag", facts_.tag}}; },
                   counts("list_notes tag " + facts_.tag, facts_.tagNotes, 50), Target::FloorShare});
    for (const auto& word : facts_.words)
        ops.push_back({"search_notes, " + word.label, "search_notes", [word] { return Json{{"query", word.query}}; },
                       counts("search_notes \"" + word.query + "\"", word.notes, 20), Target::FloorShare});

    ops.push_back({"read_note, ~4 KB note", "read_note", [this] { return Json{{"path", facts_.readPath}}; },
                   [this](const Json& structured, const Json&) {
                       checks_.expect(structured.at("title") == facts_.readTitle,
                                      "read_note title " + structured.at("title").dump() + ", expected " + facts_.readTitle);
                       checks_.expect(structured.at("revision") == sha256Hex(readFile(library_ / facts_.readPath)),
                                      "read_note revision is the SHA-256 of the file");
                       checks_.expect(structured.at("truncated") == false && !structured.at("content").get<std::string>().empty(),
                                      "read_note returns the whole body");
                       bool listed = false;
                       for (const auto& attachment : structured.at("attachments"))
                           listed = listed || (attachment.at("name") == facts_.attachmentName &&
                                               attachment.at("size_bytes") == facts_.attachmentBytes);
                       checks_.expect(listed, "read_note lists " + facts_.attachmentName);
                   },
                   Target::Read});
    ops.push_back({"read_attachment, 6 KB image", "read_attachment",
                   [this] { return Json{{"path", facts_.readPath}, {"attachment_name", facts_.attachmentName}}; },
                   [this](const Json& structured, const Json& result) {
                       checks_.expect(structured.at("size_bytes") == facts_.attachmentBytes &&
                                          structured.at("mime_type") == "image/png",
                                      "read_attachment metadata");
                       const auto& item = result.at("content").at(1);
                       std::optional<fs::path> file;
                       // The attachment lies in the folder named after the note's id.
                       for (const auto& entry : fs::recursive_directory_iterator(library_ / "Vorlo Data" / "Attachments"))
                           if (entry.path().filename() == facts_.attachmentName) file = entry.path();
                       checks_.expect(item.at("type") == "image" && file && item.at("data") == base64(readFile(*file)),
                                      "read_attachment returns the image's bytes");
                   },
                   Target::Read});

    ops.push_back({"update_note", "update_note",
                   [this] {
                       return Json{{"path", scratch_.path},
                                   {"expected_revision", scratch_.revision},
                                   {"content", "Rewritten at every update: round " + std::to_string(++scratch_.updates) + ".\n"}};
                   },
                   [this](const Json& structured, const Json&) {
                       const std::string revision = structured.at("note").at("revision").get<std::string>();
                       checks_.expect(structured.at("updated") == true &&
                                          revision == sha256Hex(readFile(library_ / scratch_.path)),
                                      "update_note rewrites the note and reports its new revision");
                       scratch_.revision = revision;
                   },
                   Target::Write});
    ops.push_back({"create_note", "create_note",
                   [] {
                       return Json{{"title", "Bench note"},
                                   {"folder", kScratchFolder},
                                   {"content", "Made by the benchmark. #bench\n"},
                                   {"tags", {"bench"}}};
                   },
                   [this](const Json& structured, const Json&) {
                       const fs::path written = library_ / structured.at("note").at("path").get<std::string>();
                       checks_.expect(structured.at("created") == true && fs::is_regular_file(written) &&
                                          structured.at("note").at("revision") == sha256Hex(readFile(written)),
                                      "create_note writes the note it reports");
                   },
                   Target::Write});
    return ops;
}

Samples SizeRun::measure(ServerClient& server, const Operation& operation) {
    Samples samples;
    for (int i = 0; i < warmUps() + options_.reps; ++i) {
        const std::string line =
            server.requestLine("tools/call", {{"name", operation.tool}, {"arguments", operation.arguments()}});
        const auto start = Clock::now();
        const std::string reply = server.roundTrip(line);
        const double seconds = secondsSince(start);
        if (i >= warmUps()) samples.seconds.push_back(seconds);
        const Json parsed = Json::parse(reply, nullptr, false);
        try {
            const Json& result = parsed.at("result");
            if (result.value("isError", true)) {
                checks_.expect(false, operation.label + ": " + result.dump().substr(0, 300));
                continue;
            }
            operation.check(result.at("structuredContent"), result);
        } catch (const Json::exception& error) {
            checks_.expect(false, operation.label + ": unexpected reply (" + error.what() + "): " + reply.substr(0, 300));
        }
    }
    return samples;
}

// Why the memory folder cannot take a copy of the library, or empty when it can: it must be a
// tmpfs (where fsync has nothing to flush) with room to spare.
std::string SizeRun::memoryFolderUnusable(std::uint64_t neededBytes) const {
    const std::string& folder = options_.memoryDir;
#ifdef __linux__
    struct statfs system {};
    if (::statfs(folder.c_str(), &system) != 0) return folder + " cannot be used: " + std::strerror(errno);
    if (static_cast<unsigned long>(system.f_type) != TMPFS_MAGIC) return folder + " is no tmpfs";
#else
    return "a tmpfs is only known on Linux";
#endif
    struct statvfs space {};
    if (::statvfs(folder.c_str(), &space) != 0) return folder + " cannot be used: " + std::strerror(errno);
    if (static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize < neededBytes)
        return folder + " has less than " + formatFixed(static_cast<double>(neededBytes) / kMiB, 0) + " MiB free";
    return "";
}

// The writing tools once more, on a copy of the library in a tmpfs: there every fsync returns at
// once, so what is left is the tools' own cost, the figure that their target holds to after the
// flushes are paid. The copy is taken of the library as it stands, scratch note included, so the
// client's last revision stays valid; the checks run against the copy.
std::vector<std::pair<Operation, Samples>> SizeRun::measureWritesInMemory(Samples& durable) {
    std::vector<std::pair<Operation, Samples>> measured;
    if (options_.memoryDir == "none") return measured;
    // The notes, their attachments and the folders: four times the notes leaves ample room.
    const std::string unusable = memoryFolderUnusable(4 * facts_.noteBytes + (64 << 20));
    if (!unusable.empty()) {
        std::cerr << "vorlo-bench: no writing rows without fsync: " << unusable << "\n";
        return measured;
    }
    std::string pattern = options_.memoryDir + "/vorlo-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a folder in " + options_.memoryDir);
    const fs::path copy = pattern;
    struct Restore {
        SizeRun& run;
        fs::path library, preferences, copy;
        ~Restore() {
            run.library_ = library;
            run.preferences_ = preferences;
            std::error_code ignored;
            fs::remove_all(copy, ignored);
        }
    } restore{*this, library_, preferences_, copy};

    const auto start = Clock::now();
    std::cerr << "vorlo-bench: " << notes_ << " notes: a copy in " << copy.string() << " ... " << std::flush;
    fs::copy(library_, copy / "Library", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    std::cerr << "ready in " << formatSeconds(secondsSince(start)) << "\n";
    library_ = copy / "Library";
    preferences_ = copy / "Preferences.json";
    writePreferences(preferences_, library_);

    for (int i = 0; i < std::max(options_.reps, 5); ++i)
        durable.seconds.push_back(durableWriteSeconds((library_ / kScratchFolder).string()));
    ServerClient server(options_.server, preferences_.string());
    server.request("initialize", {{"protocolVersion", "2025-06-18"},
                                  {"capabilities", Json::object()},
                                  {"clientInfo", {{"name", "vorlo-bench"}, {"version", "1"}}}});
    for (auto& operation : operations()) {
        if (operation.target != Operation::Target::Write) continue;
        std::cerr << "vorlo-bench: " << notes_ << " notes: " << operation.label << " on tmpfs ...\n";
        Samples samples = measure(server, operation);
        measured.emplace_back(std::move(operation), std::move(samples));
    }
    const int status = server.finish();
    checks_.expect(status == 0 && server.standardError().empty(),
                   "the session on tmpfs ends with status 0 and nothing on standard error: " + server.standardError());
    return measured;
}

std::vector<Row> SizeRun::run() {
    prepare();
    const std::uint64_t expectedNotes = facts_.notes + 1;
    std::cerr << "vorlo-bench: " << notes_ << " notes: floor, durable write, start-up ...\n";
    measureFloor(expectedNotes, warmUps()); // warms the page cache, and the checks hold for it too
    Samples floor = measureFloor(expectedNotes, options_.reps);
    // Flushes vary more than reads, so this one takes a few samples even in a short run.
    Samples durable;
    for (int i = 0; i < std::max(options_.reps, 5); ++i)
        durable.seconds.push_back(durableWriteSeconds((library_ / kScratchFolder).string()));
    const Samples startUp = measureStartUp();

    std::vector<std::pair<Operation, Samples>> measured;
    ServerClient server(options_.server, preferences_.string());
    server.request("initialize", {{"protocolVersion", "2025-06-18"},
                                  {"capabilities", Json::object()},
                                  {"clientInfo", {{"name", "vorlo-bench"}, {"version", "1"}}}});
    for (auto& operation : operations()) {
        std::cerr << "vorlo-bench: " << notes_ << " notes: " << operation.label << " ...\n";
        Samples samples = measure(server, operation);
        measured.emplace_back(std::move(operation), std::move(samples));
    }
    const auto peak = server.peakResidentKiB();
    const int status = server.finish();
    checks_.expect(status == 0 && server.standardError().empty(),
                   "the session ends with status 0 and nothing on standard error: " + server.standardError());
    // A second round of the floor after the session, so that a change in the machine's load during
    // the run shows in both sides of every ratio. The notes that create_note made go first.
    for (const auto& entry : fs::directory_iterator(library_ / kScratchFolder))
        if (entry.path() != library_ / scratch_.path) fs::remove_all(entry.path());
    // The scans once more through the submission ring, side by side with the default of one system
    // call at a time: which way of reading wins differs from machine to machine.
    ServerClient ringServer(options_.server, preferences_.string(), {"VORLO_MCP_IO=ring"});
    ringServer.request("initialize", {{"protocolVersion", "2025-06-18"},
                                      {"capabilities", Json::object()},
                                      {"clientInfo", {{"name", "vorlo-bench"}, {"version", "1"}}}});
    for (auto& operation : operations()) {
        if (operation.target != Operation::Target::FloorShare) continue;
        std::cerr << "vorlo-bench: " << notes_ << " notes: " << operation.label
                  << ", VORLO_MCP_IO=ring ...\n";
        Samples samples = measure(ringServer, operation);
        const auto beside = std::find_if(measured.begin(), measured.end(), [&](const auto& entry) {
            return entry.first.label == operation.label;
        });
        operation.label += ", VORLO_MCP_IO=ring";
        measured.emplace(beside == measured.end() ? beside : beside + 1, std::move(operation),
                         std::move(samples));
    }
    checks_.expect(ringServer.finish() == 0, "the session with VORLO_MCP_IO=ring ends with status 0");
    Samples durableInMemory;
    const auto inMemory = measureWritesInMemory(durableInMemory);
    if (!options_.quick) {
        const Samples after = measureFloor(expectedNotes, options_.reps);
        floor.seconds.insert(floor.seconds.end(), after.seconds.begin(), after.seconds.end());
    }
    fs::remove_all(library_ / kScratchFolder);

    const double floorMedian = floor.median();
    const double durableMedian = durable.median();
    std::vector<Row> rows;
    rows.push_back({notes_, "floor: walk, lstat, read, SHA-256 (" +
                                formatFixed(floorMedian / static_cast<double>(expectedNotes) * 1e6, 1) + " µs/note, " +
                                formatFixed(static_cast<double>(facts_.noteBytes) / kMiB, 0) + " MiB)",
                    formatSeconds(floorMedian), formatSeconds(floor.min()), "1.00", "", ""});
    for (const auto& [operation, samples] : measured) {
        Row row{notes_, operation.label, formatSeconds(samples.median()), formatSeconds(samples.min()),
                formatFixed(samples.median() / floorMedian, 2), "", ""};
        bool meets = false;
        switch (operation.target) {
        case Operation::Target::FloorShare:
            row.target = "≤ 0.50 × floor";
            meets = samples.median() <= 0.5 * floorMedian;
            break;
        case Operation::Target::Read:
            row.target = "≤ 2 ms";
            meets = samples.median() <= 2e-3;
            break;
        case Operation::Target::Write:
            // Within a millisecond of the one durable write it cannot do without.
            row.target = "≤ durable write + 1 ms = " + formatSeconds(1e-3 + durableMedian);
            meets = samples.median() <= 1e-3 + durableMedian;
            break;
        }
        row.verdict = meets ? "meets" : "misses";
        rows.push_back(std::move(row));
    }
    rows.push_back({notes_, "durable 4 KB write: fsync, rename, fsync folder", formatSeconds(durableMedian),
                    formatSeconds(durable.min()), "", "the fsync above", ""});
    for (const auto& [operation, samples] : inMemory)
        rows.push_back({notes_, operation.label + ", tmpfs: without fsync cost", formatSeconds(samples.median()),
                        formatSeconds(samples.min()), "", "≤ 2 ms", samples.median() <= 2e-3 ? "meets" : "misses"});
    if (!durableInMemory.seconds.empty())
        rows.push_back({notes_, "durable 4 KB write on tmpfs", formatSeconds(durableInMemory.median()),
                        formatSeconds(durableInMemory.min()), "", "", ""});
    rows.push_back({notes_, "start-up: process start → initialize reply", formatSeconds(startUp.median()),
                    formatSeconds(startUp.min()), "", "≤ 5 ms", startUp.median() <= 5e-3 ? "meets" : "misses"});
    if (peak) {
        const double mib = static_cast<double>(*peak) / 1024.0;
        rows.push_back({notes_, "peak RSS after a session of every tool", formatFixed(mib, 1) + " MiB", "", "",
                        "≤ 32 MiB", mib <= 32 ? "meets" : "misses"});
    }
    return rows;
}

// ---- Hostile inputs ----------------------------------------------------------------------------

// An input chosen by a hostile client or library, built at a size n of its own unit. Each is measured
// at n and 2n in a fresh server: the time of the call at 2n over that at n is about 2 when the cost
// follows the size, and 4 or more when it grows with its square; the peak resident set of the
// process shows whether memory follows what the reply holds. The ratio is of the fastest calls,
// which a busy machine disturbs least.
struct HostileInput {
    std::string label;
    std::function<std::string(double n)> size;
    // Writes what the call meets into the empty library; run before every call.
    std::function<void(const fs::path& library, double n)> build;
    std::string tool;
    std::function<Json(double n)> arguments;
    std::function<void(const Json& structured, const fs::path& library)> check;
};

std::string repeated(std::string_view piece, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i)
        text += piece;
    return text;
}

std::vector<HostileInput> hostileInputs(Checks& checks) {
    const auto kib = [](double n, double unit) { return formatFixed(n * unit, 0) + " KiB"; };
    const auto mib = [](double n, double unit) { return formatFixed(n * unit, 0) + " MiB"; };
    const auto count = [](double n, double unit) { return static_cast<std::size_t>(n * unit); };
    std::vector<HostileInput> inputs;
    // A query of one character can hold 100,000 code points; folding keeps the joiners, so it never matches.
    inputs.push_back(
        {"search_notes: a one-character query of joiners against a note of prose",
         [=](double n) { return kib(n, 100) + " query, " + mib(n, 1) + " note"; },
         [=](const fs::path& library, double n) { writeProseNote(library.string(), count(n, 1 << 20)); },
         "search_notes",
         [=](double n) {
             return Json{{"query", oneCharacterQuery(count(n, 34133))}};
         },
         [&checks](const Json& structured, const fs::path&) {
             checks.expect(structured.at("total_matches") == 0, "the long query matches no note");
         }});
    // The title holds the query, so the note matches, and the snippet looks for it in the body.
    inputs.push_back(
        {"search_notes: the same query in a title, its snippet sought in a body of accents",
         [=](double n) { return kib(n, 70) + " title and query, " + kib(n, 300) + " body"; },
         [=](const fs::path& library, double n) {
             writeAccentedNote(library.string(), oneCharacterQuery(count(n, 23893)), count(n, 300 << 10));
         },
         "search_notes",
         [=](double n) {
             return Json{{"query", oneCharacterQuery(count(n, 23893))}};
         },
         [&checks](const Json& structured, const fs::path&) {
             checks.expect(structured.at("total_matches") == 1 &&
                               structured.at("notes").at(0).at("snippet") == repeated("\u00E9t\u00E9 ", 80),
                           "the note matches by its title, and its snippet is the body's start");
         }});
    inputs.push_back({"list_notes: one inline tag repeated through a note",
                      [=](double n) { return mib(n, 8) + " of \"#a \""; },
                      [=](const fs::path& library, double n) {
                          writeRepeatedTagNote(library.string(),
                                               std::min<std::size_t>(count(n, 8 << 20), 16 << 20));
                      },
                      "list_notes", [](double) { return Json::object(); },
                      [&checks](const Json& structured, const fs::path&) {
                          checks.expect(structured.at("total_matches") == 1 &&
                                            structured.at("notes").at(0).at("tags") == Json::array({"a"}),
                                        "the note of repeated tags has the one tag");
                      }});
    inputs.push_back(
        {"create_note: an abandoned lock holding a chain of folders",
         [=](double n) { return formatFixed(n * 8000, 0) + " levels"; },
         [=](const fs::path& library, double n) { writeDeepAbandonedLock(library.string(), count(n, 8000)); },
         "create_note",
         [](double) {
             return Json{{"title", "Past a deep lock"}};
         },
         [&checks](const Json& structured, const fs::path& library) {
             checks.expect(structured.at("created") == true &&
                               !fs::exists(library / "Vorlo Data" / "Locks" / "Library Mutation.lock"),
                           "create_note moves the abandoned lock aside and writes");
         }});
    return inputs;
}

// On a tmpfs where there is one, so that the rows show the server's own work: on a disk, making and
// removing thousands of nested folders costs milliseconds a level and varies with the load.
std::vector<std::vector<std::string>> measureHostileInputs(const Options& options, const fs::path& base,
                                                           Checks& checks) {
    std::vector<std::vector<std::string>> cells;
    fs::path place = base;
#ifdef __linux__
    struct statfs system {};
    if (options.memoryDir != "none" && ::statfs(options.memoryDir.c_str(), &system) == 0 &&
        static_cast<unsigned long>(system.f_type) == TMPFS_MAGIC)
        place = options.memoryDir;
#endif
    const fs::path folder = place / ("vorlo-bench-hostile-" + std::to_string(::getpid()));
    for (const HostileInput& input : hostileInputs(checks)) {
        double halfSize = 0; // the fastest call at n, once measured
        for (const double factor : {1.0, 2.0}) {
            const double n = options.hostileScale * factor;
            const fs::path library = folder / "Library";
            removeTree(folder.string());
            fs::create_directories(library);
            writePreferences(folder / "Preferences.json", library);
            std::cerr << "vorlo-bench: hostile: " << input.label << ", " << input.size(n) << " ...\n";
            Samples samples;
            std::string peak;
            try {
                ServerClient server(options.server, (folder / "Preferences.json").string());
                server.request("initialize",
                               {{"protocolVersion", "2025-06-18"}, {"capabilities", Json::object()}});
                for (int i = 0; i < options.reps; ++i) {
                    input.build(library, n);
                    const std::string line = server.requestLine(
                        "tools/call", {{"name", input.tool}, {"arguments", input.arguments(n)}});
                    const auto start = Clock::now();
                    const std::string reply = server.roundTrip(line);
                    samples.seconds.push_back(secondsSince(start));
                    const Json parsed = Json::parse(reply, nullptr, false);
                    if (parsed.is_discarded() || !parsed.contains("result") ||
                        parsed["result"].value("isError", true))
                        checks.expect(false, input.label + ": " + reply.substr(0, 300));
                    else
                        input.check(parsed["result"].at("structuredContent"), library);
                }
                if (const auto kib = server.peakResidentKiB())
                    peak = formatFixed(static_cast<double>(*kib) / 1024.0, 1) + " MiB";
                const int status = server.finish();
                checks.expect(status == 0, input.label + ": the server ends with status 0");
            } catch (const std::exception& error) {
                checks.expect(false, input.label + ", " + input.size(n) + ": " + error.what());
            }
            removeTree(folder.string());
            if (samples.seconds.empty()) {
                cells.push_back({input.label, input.size(n), "no reply", "", "", "", "", "misses"});
                halfSize = 0;
                continue;
            }
            std::cerr << "vorlo-bench: hostile: " << formatSeconds(samples.median()) << ", peak " << peak
                      << "\n";
            std::vector<std::string> row = {input.label,
                                            input.size(n),
                                            formatSeconds(samples.median()),
                                            formatSeconds(samples.min()),
                                            "",
                                            peak,
                                            "",
                                            ""};
            if (halfSize > 0) {
                const double ratio = samples.min() / halfSize;
                row[4] = formatFixed(ratio, 2);
                // Linear cost gives 2 and a square 4; the margin between is for a busy machine.
                row[6] = "≤ 3 × half size";
                row[7] = ratio <= 3 ? "meets" : "misses";
            }
            cells.push_back(std::move(row));
            halfSize = samples.min();
        }
    }
    return cells;
}

std::string machineLine() {
    std::string model = "unknown CPU";
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line);)
        if (line.rfind("model name", 0) == 0 && line.find(':') != std::string::npos) {
            model = line.substr(line.find(':') + 2);
            break;
        }
    utsname system{};
    ::uname(&system);
    double load[3] = {0, 0, 0};
    ::getloadavg(load, 3);
    const std::time_t now = std::time(nullptr);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M UTC", std::gmtime(&now));
    return std::string(date) + ", " + model + ", " + std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)) + " cores, " +
           system.sysname + " " + system.release + ", load " + formatFixed(load[0], 2);
}

} // namespace

int main(int argc, char** argv) {
    const auto options = parseOptions(argc, argv);
    if (!options) {
        std::cerr << kUsage;
        return 64;
    }
    std::string base = options->libraryDir;
    bool removeBase = false;
    const char* tmp = std::getenv("TMPDIR");
    const std::string temporaryRoot = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
    if (base.empty() && options->quick) {
        std::string pattern = temporaryRoot + "/vorlo-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("vorlo-bench: mkdtemp");
            return 1;
        }
        base = pattern;
        removeBase = true;
    } else if (base.empty()) {
        base = temporaryRoot + "/vorlo-bench";
    }

    Checks checks;
    std::vector<Row> rows;
    const std::string machineAtStart = machineLine();
    int status = 0;
    std::vector<std::vector<std::string>> hostileRows;
    const bool hostile = options->hostile == Options::Hostile::Only ||
                         (options->hostile == Options::Hostile::Default && !options->quick);
    try {
        if (options->hostile != Options::Hostile::Only)
            for (const std::uint64_t notes : options->sizes) {
                SizeRun run(*options, notes, base + "/notes-" + std::to_string(notes), checks);
                for (auto& row : run.run())
                    rows.push_back(std::move(row));
            }
        if (hostile) hostileRows = measureHostileInputs(*options, base, checks);
    } catch (const std::exception& error) {
        std::cerr << "vorlo-bench: " << error.what() << "\n";
        status = 1;
    }
    if (removeBase) fs::remove_all(base);

    std::cout << "vorlo-bench: " << options->server << "; " << options->reps << " timed repetition"
              << (options->reps == 1 ? "" : "s")
              << (options->quick || (!hostileRows.empty() && rows.empty()) ? "" : " after one warm-up")
              << " per row\n"
              << "start: " << machineAtStart << "\nend:   " << machineLine() << "\n\n";
    if (!rows.empty()) printTable(rows);
    if (!hostileRows.empty()) {
        if (!rows.empty()) std::cout << "\n";
        std::cout << "Hostile inputs: no warm-up, a fresh server for each size, the library on a tmpfs where "
                     "there is one; × half size compares the fastest calls; the peak is the server's "
                     "resident set after the calls.\n\n";
        printTable({"hostile input", "size", "median", "min", "× half size", "peak RSS", "target", "verdict"},
                   {false, false, true, true, true, true, false, false}, hostileRows);
    }
    std::cout << "\nchecks: " << checks.count() - checks.failed() << " of " << checks.count() << " passed\n";
    return status != 0 || checks.failed() != 0 ? 1 : 0;
}
