// The benchmark's libraries: folders several deep, front matter on most notes, inline and nested
// tags, non-ASCII text, CRLF files, a few very large notes, attachments, and words whose number of
// notes is known because they are put only where the generator decides.
#include "LibraryGenerator.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::bench {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

// SplitMix64: small, fast, and the same sequence everywhere, unlike the standard distributions,
// whose results each standard library is free to choose.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform enough in [0, bound): the modulo bias is far below anything a benchmark notices.
    std::uint64_t below(std::uint64_t bound) { return bound == 0 ? 0 : next() % bound; }
    std::uint64_t between(std::uint64_t low, std::uint64_t high) { return low + below(high - low + 1); }
    bool perMille(std::uint64_t chance) { return below(1000) < chance; }
    template <typename T, std::size_t N> const T& pick(const T (&items)[N]) { return items[below(N)]; }

private:
    std::uint64_t state_;
};

// The words that the tests count. Nothing else in the generator may contain them, which
// checkVocabulary() makes sure of before a single file is written.
constexpr std::string_view kRareWord = "saxifrage";
constexpr std::string_view kCommonWord = "lantern";
constexpr std::string_view kAbsentWord = "zugzwang";
constexpr std::string_view kFoldedQuery = "creme brulee";
constexpr std::string_view kTag = "project/atlas";
constexpr std::string_view kFolder = "Areas/Santé/Course à pied";
constexpr std::string_view kReadFolder = "Work/Meetings";
constexpr std::string_view kReadTitle = "Réunion d'équipe: Tōkyō / Q3 ✈️";
constexpr std::string_view kAttachmentName = "diagram.png";
constexpr std::uint64_t kAttachmentBytes = 6144;

constexpr std::string_view kWords[] = {
    "the", "a", "of", "and", "to", "in", "for", "on", "with", "at", "from", "by", "about", "after", "before",
    "again", "really", "maybe", "still", "just", "also", "never", "always", "often", "soon", "later", "today",
    "tomorrow", "yesterday", "morning", "evening", "week", "month", "year", "plan", "plans", "idea", "ideas",
    "meeting", "notes", "draft", "review", "budget", "garden", "kitchen", "window", "door", "table", "chair",
    "book", "books", "chapter", "letter", "river", "mountain", "forest", "valley", "harbour", "bridge",
    "station", "train", "bus", "ticket", "market", "bakery", "coffee", "tea", "bread", "butter", "apple",
    "orange", "lemon", "pepper", "salt", "onion", "garlic", "tomato", "basil", "rice", "noodles", "soup",
    "salad", "dinner", "lunch", "breakfast", "recipe", "oven", "stove", "project", "release", "version",
    "server", "client", "request", "report", "invoice", "contract", "schedule", "deadline", "milestone",
    "roadmap", "design", "sketch", "prototype", "feedback", "question", "answer", "problem", "solution",
    "reason", "result", "summary", "detail", "list", "task", "team", "manager", "colleague", "friend",
    "family", "neighbour", "doctor", "dentist", "appointment", "insurance", "taxes", "receipt", "account",
    "payment", "travel", "flight", "hotel", "museum", "gallery", "concert", "film", "music", "piano",
    "guitar", "song", "poem", "story", "history", "science", "physics", "biology", "language", "grammar",
    "word", "sentence", "paragraph", "page", "paper", "pencil", "camera", "photo", "picture", "map",
    "compass", "weather", "rain", "snow", "wind", "sun", "cloud", "storm", "winter", "spring", "summer",
    "autumn", "quiet", "busy", "small", "large", "early", "late", "simple", "careful", "quick", "slow", "warm",
    "cold", "bright", "dark", "green", "blue", "red", "yellow", "old", "new", "good", "better", "best",
    "important", "useful", "strange", "clear", "open", "closed", "write", "read", "call", "send", "check",
    "fix", "build", "test", "measure", "compare", "finish", "start", "move", "clean", "paint", "cook", "bake",
    "walk", "run", "swim", "climb", "visit", "remember", "forget", "decide", "choose", "think", "learn",
    "teach", "share", "keep", "change"};

// Whole sentences in other scripts and with accents, as notes written by real people have them.
constexpr std::string_view kPhrases[] = {
    "Das Frühstück war überraschend gut.", "Nous avons visité la vieille ville à pied.",
    "Il faut réserver la salle pour jeudi.", "東京の天気は晴れでした。", "会議は午後三時からです。",
    "Приятно было снова встретиться.", "¿Dónde está la estación de tren?", "Η θάλασσα ήταν ήρεμη σήμερα.",
    "Bon appétit, à demain !", "Straße gesperrt, Umleitung über die Brücke.", "Smörgåsbord på fredag.",
    "Zażółć gęślą jaźń.", "Ça coûte trop cher, peut-être plus tard.", "🙂 Everything went fine.",
    "Café au lait ☕ at the corner.", "Déjà vu with the naïve résumé again.", "Grüße an die Familie 👋"};

constexpr std::string_view kTitleWords[] = {
    "Réunion", "Übersicht", "Idées", "Ausflug", "東京", "旅行", "Café", "Notizen", "Année", "Été", "Зима",
    "Москва", "Kraków", "São Paulo", "Zürich", "Mañana", "Fête", "Naïve", "Crêpes", "Ideen für später"};

// Header tags, some nested, some differing only in case from another, some non-ASCII.
constexpr std::string_view kHeaderTags[] = {
    "idea", "todo", "reading", "work", "Work", "personal", "meeting", "recipe", "book", "draft", "travel",
    "area/health", "area/finance", "area/home", "status/active", "status/waiting", "status/done",
    "travel/japan", "travel/2024", "project/borealis", "project/cedar", "café", "日本", "écriture",
    "lang/日本語"};

constexpr std::string_view kInlineTags[] = {"#idea", "#todo", "#followup", "#area/health", "#status/waiting",
                                            "#project/borealis", "#café", "#日本", "#2024/q3", "#reading/fiction"};

// Tags that look like the counted one and must not be taken for it: the filter wants the whole tag.
constexpr std::string_view kDecoySentences[] = {"Older notes under #project/atlas/phase-2 still apply.",
                                                "See #project/atlas-archive for the first attempt.",
                                                "The #projectatlas channel is quiet now."};

constexpr std::string_view kRareSentences[] = {"A saxifrage had rooted in the wall by the steps.",
                                               "The saxifrage on the balcony needs less water."};
constexpr std::string_view kCommonSentences[] = {"The lantern light made the room feel smaller.",
                                                 "Bring the lantern for the evening walk.",
                                                 "Lantern festival tickets are still on the desk."};
// Composed, decomposed and upper-case spellings: only folding case and diacritics finds them all.
constexpr std::string_view kFoldedSentences[] = {"Dessert was a Crème Brûlée, cracked with a spoon.",
                                                 "Try the Cre\u0300me Bru\u0302le\u0301e recipe again.",
                                                 "CRÈME BRÛLÉE for twelve: double the cream."};
constexpr std::string_view kAtlasSentences[] = {"Next step for #project/atlas is the review.",
                                                "Moved the open questions to #Project/Atlas."};

struct FolderWeight {
    std::string_view path;
    unsigned weight;
};

// A library grown over years: a root, an inbox, projects, areas and archives up to four levels
// deep, a folder named like the private one below the root (an ordinary folder there), and journal
// months added separately.
constexpr FolderWeight kFolders[] = {
    {"", 6}, {"Inbox", 8}, {"Projects/Borealis", 5}, {"Projects/Borealis/Research", 3}, {"Projects/Cedar", 4},
    {"Projects/Cedar/Design Reviews", 2}, {"Projects/Atlas Migration/Phase 2/Notes", 2}, {kFolder, 3},
    {"Areas/Santé/Ernährung", 2}, {"Areas/Finance/Taxes/2024", 2}, {"Areas/Finance/Taxes/2025", 2},
    {"Areas/Home/Garden", 3}, {"Areas/Home/Kitchen/Recettes", 3}, {"Resources/Books", 4},
    {"Resources/Articles", 4}, {"Resources/Talks/2023", 2}, {"Resources/日本語/文法", 2}, {"Archive/2019", 2},
    {"Archive/2020/Old Projects/Harbour", 1}, {"Archive/2021", 2}, {"Archive/Vorlo Data", 1},
    {kReadFolder, 6}, {"Work/Meetings/1-on-1", 3}, {"Work/Hiring/Interviews", 2},
    {"Work/Reports/Quarterly/Q3", 2}, {"Réunions", 3}, {"Personal/Travel/Japan 2024", 2},
    {"Personal/Travel/Lisboa", 2}, {"Personal/Letters", 2}};

constexpr std::int64_t kFirstDay = 17897; // 2019-01-01, in days since 1970-01-01
constexpr std::int64_t kLastDay = 20757;  // 2026-10-31

struct CivilDate {
    int year;
    unsigned month, day;
};

// Days since 1970-01-01 to a proleptic Gregorian date (H. Hinnant's algorithm).
CivilDate civilFromDays(std::int64_t days) {
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned mp = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * mp + 2) / 5 + 1;
    const unsigned month = mp < 10 ? mp + 3 : mp - 9;
    return {static_cast<int>(yearOfEra + era * 400 + (month <= 2)), month, day};
}

std::string formatDay(std::int64_t seconds) {
    const CivilDate date = civilFromDays(seconds / 86400);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u", date.year, date.month, date.day);
    return text;
}

std::string formatIso8601(std::int64_t seconds, bool withFraction = false) {
    const std::int64_t inDay = seconds % 86400;
    char text[40];
    std::snprintf(text, sizeof text, "%sT%02d:%02d:%02d%sZ", formatDay(seconds).c_str(), static_cast<int>(inDay / 3600),
                  static_cast<int>(inDay / 60 % 60), static_cast<int>(inDay % 60), withFraction ? ".250" : "");
    return text;
}

std::string uuidText(Random& random) {
    std::uint64_t high = random.next(), low = random.next();
    high = (high & ~0xF000ull) | 0x4000ull;            // version 4
    low = (low & 0x3FFFFFFFFFFFFFFFull) | (1ull << 63); // variant 1
    char text[40];
    std::snprintf(text, sizeof text, "%08llX-%04llX-%04llX-%04llX-%012llX",
                  static_cast<unsigned long long>(high >> 32), static_cast<unsigned long long>((high >> 16) & 0xFFFF),
                  static_cast<unsigned long long>(high & 0xFFFF), static_cast<unsigned long long>(low >> 48),
                  static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFull));
    return text;
}

// The compact JSON form the notes application writes: "/" as "\/", non-ASCII as is.
std::string jsonString(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '/': out += "\\/"; break;
        case '\n': out += "\\n"; break;
        default: out += c;
        }
    }
    return out + "\"";
}

std::string jsonArray(const std::vector<std::string>& items) {
    std::string out = "[";
    for (std::size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + jsonString(items[i]);
    return out + "]";
}

std::string capitalised(std::string_view word) {
    std::string out(word);
    if (!out.empty() && out[0] >= 'a' && out[0] <= 'z') out[0] = static_cast<char>(out[0] - 'a' + 'A');
    return out;
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (auto& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// Fails loudly if any text the generator draws on could contain a counted word by accident.
void checkVocabulary() {
    const std::string_view forbidden[] = {kRareWord, kCommonWord, kAbsentWord, "creme", "crème", "brulee",
                                          "brûlée"};
    auto check = [&](std::string_view text) {
        const std::string lower = asciiLower(text);
        for (const auto word : forbidden)
            if (lower.find(word) != std::string::npos)
                throw std::logic_error("the generator's vocabulary holds a counted word: " + std::string(text));
    };
    for (const auto word : kWords) check(word);
    for (const auto phrase : kPhrases) check(phrase);
    for (const auto word : kTitleWords) check(word);
    for (const auto tag : kHeaderTags) check(tag);
    for (const auto tag : kInlineTags) check(tag);
    for (const auto& folder : kFolders) check(folder.path);
}

std::string sentence(Random& random) {
    if (random.perMille(80)) return std::string(random.pick(kPhrases));
    std::string out;
    const std::uint64_t words = random.between(5, 16);
    for (std::uint64_t i = 0; i < words; ++i) {
        const std::string_view word = random.pick(kWords);
        if (i > 0) out += ' ';
        out += i == 0 ? capitalised(word) : std::string(word);
        if (i + 1 < words && random.perMille(60)) out += ",";
    }
    out += random.perMille(900) ? "." : random.perMille(500) ? "?" : "!";
    if (random.perMille(40)) out += " " + std::string(random.pick(kInlineTags));
    return out;
}

std::string shortPhrase(Random& random) {
    std::string out;
    const std::uint64_t words = random.between(2, 7);
    for (std::uint64_t i = 0; i < words; ++i) {
        const std::string_view word = random.pick(kWords);
        if (i > 0) out += ' ';
        out += i == 0 ? capitalised(word) : std::string(word);
    }
    return out;
}

struct Block {
    std::string text;
    bool prose = false; // a paragraph, where a counted sentence can go
};

Block makeBlock(Random& random, std::uint64_t& section) {
    const std::uint64_t kind = random.below(100);
    if (kind < 12) return {"## " + shortPhrase(random), false};
    if (kind < 24) {
        std::string list;
        const bool tasks = random.perMille(400);
        for (std::uint64_t i = random.between(3, 7); i > 0; --i)
            list += (tasks ? (random.perMille(500) ? "- [x] " : "- [ ] ") : "- ") + shortPhrase(random) + "\n";
        list.pop_back();
        return {list, false};
    }
    if (kind < 28) return {"> " + sentence(random), false};
    if (kind < 31)
        return {"```sh\n# build and run\nmake build && ./run --" + std::string(random.pick(kWords)) + "\n```", false};
    if (kind < 36)
        return {"See [" + shortPhrase(random) + "](https://example.org/notes/" + std::string(random.pick(kWords)) +
                    "/#section-" + std::to_string(++section) + ") for more.",
                false};
    std::string paragraph;
    for (std::uint64_t i = random.between(2, 6); i > 0; --i) paragraph += (paragraph.empty() ? "" : " ") + sentence(random);
    return {paragraph, true};
}

// What the generator decided about one note before writing it.
struct NotePlan {
    bool frontMatter = true;
    bool id = true;
    bool crlf = false;
    bool unquotedTitle = false;  // a title the reader cannot decode, so the file name stands in
    bool yamlTags = false;       // a tags line the reader ignores
    bool fractionalModified = false;
    bool extraKeys = false;
    bool rare = false, common = false, folded = false, decoy = false;
    bool rareInTitle = false, commonInTitle = false;
    int atlas = 0;               // 0 none, 1 in the header, 2 in the body
    std::uint64_t targetBytes = 4096;
};

// Notes chosen for a property: exactly `count` of `total`, spread by a partial shuffle.
std::vector<bool> chooseNotes(Random& random, std::uint64_t total, std::uint64_t count, std::uint64_t excluded) {
    std::vector<std::uint64_t> order(total);
    std::iota(order.begin(), order.end(), 0);
    std::vector<bool> chosen(total, false);
    std::uint64_t taken = 0;
    for (std::uint64_t i = 0; i < total && taken < count; ++i) {
        std::swap(order[i], order[i + random.below(total - i)]);
        if (order[i] == excluded) continue;
        chosen[order[i]] = true;
        ++taken;
    }
    return chosen;
}

// Typical notes lie between 1 and 7 KB around 4 KB; one in ten is short and one in twenty long.
std::uint64_t noteSize(Random& random) {
    const std::uint64_t kind = random.below(100);
    if (kind < 10) return random.between(200, 1000);
    if (kind < 15) return random.between(8000, 24000);
    std::uint64_t size = 1000;
    for (int i = 0; i < 4; ++i) size += random.below(1550);
    return size;
}

std::string makeTitle(Random& random, std::int64_t created) {
    const std::uint64_t kind = random.below(100);
    if (kind < 10) return formatDay(created) + " " + shortPhrase(random);
    if (kind < 25) return std::string(random.pick(kTitleWords)) + " " + std::string(random.pick(kWords)) + " " +
                          std::string(random.pick(kTitleWords));
    if (kind < 27) return "Re: " + shortPhrase(random);
    if (kind < 29) return shortPhrase(random) + " / " + std::string(random.pick(kWords));
    if (kind < 30) return "\"" + shortPhrase(random) + "\" revisited";
    return shortPhrase(random);
}

// A file name as the notes application derives it from a title: no "/", ":" or quotes, nothing
// hidden, not too long for any file system.
std::string fileStem(std::string_view title) {
    std::string stem;
    for (char c : title) {
        if (c == '/' || c == ':' || c == '"' || c == '\\') c = ' ';
        if (c != ' ' || (!stem.empty() && stem.back() != ' ')) stem += c;
    }
    while (!stem.empty() && (stem.front() == '.' || stem.front() == '~' || stem.front() == ' ')) stem.erase(0, 1);
    while (!stem.empty() && stem.back() == ' ') stem.pop_back();
    if (stem.size() > 120) {
        std::size_t cut = 120;
        while (cut > 0 && (static_cast<unsigned char>(stem[cut]) & 0xC0) == 0x80) --cut;
        stem.resize(cut);
    }
    return stem.empty() ? "Untitled" : stem;
}

class FileWriter {
public:
    void write(const fs::path& path, std::string_view bytes, std::int64_t modified) {
        ensureFolder(path.parent_path());
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0) fail("cannot create", path);
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                ::close(fd);
                fail("cannot write", path);
            }
            done += static_cast<std::size_t>(n);
        }
        const timespec times[2] = {{static_cast<time_t>(modified), 0}, {static_cast<time_t>(modified), 0}};
        ::futimens(fd, times);
        if (::close(fd) != 0) fail("cannot write", path);
    }

private:
    void ensureFolder(const fs::path& folder) {
        if (made_.insert(folder.string()).second) fs::create_directories(folder);
    }
    [[noreturn]] static void fail(const char* what, const fs::path& path) {
        throw std::runtime_error(std::string(what) + " " + path.string() + ": " + std::strerror(errno));
    }
    std::set<std::string> made_;
};

std::string randomBytes(Random& random, std::uint64_t size, std::string_view signature) {
    std::string bytes(signature);
    bytes.reserve(size);
    while (bytes.size() < size) {
        const std::uint64_t word = random.next();
        for (int i = 0; i < 8 && bytes.size() < size; ++i) bytes += static_cast<char>((word >> (8 * i)) & 0xFF);
    }
    bytes.resize(size);
    return bytes;
}

constexpr std::string_view kPngSignature = "\x89PNG\r\n\x1a\n";

void writeAttachments(Random& random, FileWriter& writer, const fs::path& folder, std::int64_t modified) {
    const std::uint64_t files = random.between(1, 3);
    for (std::uint64_t i = 0; i < files; ++i) {
        switch (random.below(4)) {
        case 0: writer.write(folder / "photo.png", randomBytes(random, random.between(3000, 40000), kPngSignature), modified); break;
        case 1: writer.write(folder / "scan.pdf", randomBytes(random, random.between(20000, 120000), "%PDF-1.7\n"), modified); break;
        case 2: writer.write(folder / "notes.txt", sentence(random) + "\n" + sentence(random) + "\n", modified); break;
        default: writer.write(folder / "data.csv", "day,value\n1,3\n2,5\n3,8\n", modified); break;
        }
    }
}

} // namespace

LibraryFacts generateLibrary(const std::string& libraryPath, std::uint64_t notes, std::uint64_t seed) {
    checkVocabulary();
    if (fs::exists(libraryPath)) throw std::runtime_error(libraryPath + " exists already");
    fs::create_directories(libraryPath);
    const fs::path library(libraryPath);
    Random random(seed);
    FileWriter writer;

    LibraryFacts facts;
    facts.seed = seed;
    facts.notes = notes;
    facts.folder = kFolder;
    facts.tag = kTag;
    facts.readTitle = kReadTitle;
    facts.attachmentName = kAttachmentName;
    facts.attachmentBytes = kAttachmentBytes;

    const std::uint64_t readIndex = notes / 2;
    const std::uint64_t rareCount = std::max<std::uint64_t>(1, notes / 100);
    const std::uint64_t foldedCount = std::max<std::uint64_t>(1, notes / 50);
    const std::uint64_t atlasCount = std::max<std::uint64_t>(2, notes / 20);
    const std::uint64_t hugeCount = 3 + notes / 25000;
    constexpr std::uint64_t kNone = ~0ull;
    const auto rare = chooseNotes(random, notes, rareCount, kNone);
    const auto common = chooseNotes(random, notes, notes / 2, kNone);
    const auto folded = chooseNotes(random, notes, foldedCount, kNone);
    const auto atlas = chooseNotes(random, notes, atlasCount, kNone);
    const auto decoy = chooseNotes(random, notes, notes / 100, kNone);
    const auto huge = chooseNotes(random, notes, std::min(hugeCount, notes > 1 ? notes - 1 : 0), readIndex);

    std::uint64_t totalWeight = 0;
    for (const auto& folder : kFolders) totalWeight += folder.weight;
    std::set<std::string> usedNames; // lower-cased, since the server finds a path without regard to case
    std::uint64_t section = 0;

    for (std::uint64_t index = 0; index < notes; ++index) {
        NotePlan plan;
        plan.frontMatter = !random.perMille(100);
        plan.id = plan.frontMatter && !random.perMille(50);
        plan.crlf = random.perMille(50);
        plan.unquotedTitle = plan.frontMatter && random.perMille(30);
        plan.yamlTags = plan.frontMatter && random.perMille(30);
        plan.fractionalModified = plan.frontMatter && random.perMille(20);
        plan.extraKeys = plan.frontMatter && random.perMille(100);
        plan.rare = rare[index];
        plan.common = common[index];
        plan.folded = folded[index];
        plan.decoy = decoy[index];
        plan.rareInTitle = plan.rare && random.perMille(200);
        plan.commonInTitle = plan.common && random.perMille(50);
        plan.targetBytes = huge[index] ? random.between(150000, 600000) : noteSize(random);
        if (atlas[index]) plan.atlas = random.perMille(500) ? 1 : 2;

        const std::int64_t created = (kFirstDay + static_cast<std::int64_t>(random.below(kLastDay - kFirstDay))) * 86400 +
                                     static_cast<std::int64_t>(random.below(86400));
        const std::int64_t modified =
            std::min<std::int64_t>(created + static_cast<std::int64_t>(random.below(400 * 86400)), kLastDay * 86400);

        const bool journal = random.perMille(250);
        std::string folder;
        std::string title;
        if (journal) {
            const std::string day = formatDay(created);
            folder = "Journal/" + day.substr(0, 4) + "/" + day.substr(5, 2);
            title = random.perMille(500) ? day : day + " " + shortPhrase(random);
        } else {
            std::uint64_t draw = random.below(totalWeight);
            for (const auto& choice : kFolders) {
                if (draw < choice.weight) {
                    folder = choice.path;
                    break;
                }
                draw -= choice.weight;
            }
            title = makeTitle(random, created);
        }
        const bool isReadNote = index == readIndex;
        if (isReadNote) {
            // Front matter, an id and a typical size; its title is decoded from JSON and differs
            // from its file name, so a right answer cannot come from the path.
            plan.frontMatter = plan.id = true;
            plan.crlf = plan.unquotedTitle = plan.rareInTitle = plan.commonInTitle = false;
            plan.targetBytes = 4096;
            folder = kReadFolder;
            title = kReadTitle;
        }
        if (plan.rareInTitle) title += " and the " + capitalised(kRareWord);
        if (plan.commonInTitle) title = capitalised(kCommonWord) + " " + title;

        std::vector<std::string> headerTags;
        for (std::uint64_t i = random.below(4); i > 0; --i) {
            const std::string tag(random.pick(kHeaderTags));
            if (std::find(headerTags.begin(), headerTags.end(), tag) == headerTags.end()) headerTags.push_back(tag);
        }
        // The counted tag must reach the server: a header that cannot carry tags gets it in the body.
        if (plan.atlas == 1 && (!plan.frontMatter || plan.yamlTags)) plan.atlas = 2;
        if (plan.atlas == 1) headerTags.insert(headerTags.begin() + static_cast<std::ptrdiff_t>(random.below(headerTags.size() + 1)), std::string(kTag));

        std::vector<Block> blocks;
        std::uint64_t size = 0;
        if (!plan.frontMatter && random.perMille(500)) blocks.push_back({"# " + title, false});
        while (size < plan.targetBytes) {
            blocks.push_back(makeBlock(random, section));
            size += blocks.back().text.size() + 2;
        }
        auto addSentence = [&](std::string_view text) {
            std::vector<std::size_t> prose;
            for (std::size_t i = 0; i < blocks.size(); ++i)
                if (blocks[i].prose) prose.push_back(i);
            if (prose.empty()) {
                blocks.push_back({std::string(text), true});
                return;
            }
            blocks[prose[random.below(prose.size())]].text += " " + std::string(text);
        };
        if (plan.rare && !plan.rareInTitle) addSentence(random.pick(kRareSentences));
        if (plan.common && !plan.commonInTitle) addSentence(random.pick(kCommonSentences));
        if (plan.folded) addSentence(random.pick(kFoldedSentences));
        if (plan.atlas == 2) addSentence(random.pick(kAtlasSentences));
        if (plan.decoy) addSentence(random.pick(kDecoySentences));

        const std::string id = plan.id ? uuidText(random) : std::string();
        std::string text;
        if (plan.frontMatter) {
            text += "---\n";
            if (plan.id) text += "id: " + id + "\n";
            text += "title: " + (plan.unquotedTitle ? title : jsonString(title)) + "\n";
            text += "created: " + formatIso8601(created) + "\n";
            text += "modified: " + formatIso8601(modified, plan.fractionalModified) + "\n";
            if (plan.yamlTags) {
                text += "tags:\n";
                for (const auto& tag : headerTags) text += "  - " + tag + "\n";
            } else {
                text += "tags: " + jsonArray(headerTags) + "\n";
            }
            text += std::string("pinned: ") + (random.perMille(20) ? "true" : "false") + "\n";
            text += std::string("archived: ") + (random.perMille(50) ? "true" : "false") + "\n";
            if (plan.extraKeys) text += "source: https://example.org/clip\naliases: []\n";
            text += "---\n";
        }
        for (std::size_t i = 0; i < blocks.size(); ++i) text += (i ? "\n\n" : "") + blocks[i].text;
        text += "\n";
        if (plan.crlf) {
            std::string converted;
            converted.reserve(text.size() + text.size() / 16);
            for (const char c : text) converted += c == '\n' ? std::string("\r\n") : std::string(1, c);
            text = std::move(converted);
        }

        std::string stem = fileStem(title);
        const std::string prefix = folder.empty() ? "" : folder + "/";
        std::string relative = prefix + stem + ".md";
        for (int n = 2; !usedNames.insert(asciiLower(relative)).second; ++n) relative = prefix + stem + " " + std::to_string(n) + ".md";

        writer.write(library / relative, text, modified);
        facts.noteBytes += text.size();
        if (folder == kFolder) ++facts.folderNotes;
        if (plan.atlas != 0) ++facts.tagNotes;
        if (isReadNote) facts.readPath = relative;

        if (plan.id && (isReadNote || random.perMille(20))) {
            const fs::path attachments = library / "Vorlo Data" / "Attachments" / id;
            if (isReadNote) {
                writer.write(attachments / std::string(kAttachmentName),
                             randomBytes(random, kAttachmentBytes, kPngSignature), modified);
                writer.write(attachments / "minutes.txt", sentence(random) + "\n", modified);
            } else {
                writeAttachments(random, writer, attachments, modified);
            }
        }
    }

    // Things a real library holds that are not notes: a hidden folder, files of other kinds, and
    // the private folder's locks.
    writer.write(library / ".trash" / "Deleted note.md", "---\ntitle: \"Deleted\"\n---\nA lantern.\n", kLastDay * 86400);
    writer.write(library / "Inbox" / "clip.markdown", "Not a note: the extension is not md. Lantern.\n", kLastDay * 86400);
    writer.write(library / "Resources" / "Articles" / "figure.png", randomBytes(random, 5000, kPngSignature), kLastDay * 86400);
    fs::create_directories(library / "Vorlo Data" / "Locks");

    facts.words = {
        {"word in 1% of notes", std::string(kRareWord), rareCount},
        {"word in 50% of notes", std::string(kCommonWord), notes / 2},
        {"word in no note", std::string(kAbsentWord), 0},
        {"\"creme brulee\", found by folding", std::string(kFoldedQuery), foldedCount},
    };
    return facts;
}

Json factsToJson(const LibraryFacts& facts) {
    Json words = Json::array();
    for (const auto& word : facts.words)
        words.push_back({{"label", word.label}, {"query", word.query}, {"notes", word.notes}});
    return {{"generator_version", kGeneratorVersion}, {"seed", facts.seed}, {"notes", facts.notes},
            {"note_bytes", facts.noteBytes}, {"words", words}, {"folder", facts.folder},
            {"folder_notes", facts.folderNotes}, {"tag", facts.tag}, {"tag_notes", facts.tagNotes},
            {"read_path", facts.readPath}, {"read_title", facts.readTitle},
            {"attachment_name", facts.attachmentName}, {"attachment_bytes", facts.attachmentBytes}};
}

std::optional<LibraryFacts> factsFromJson(const Json& json) {
    try {
        if (json.at("generator_version").get<int>() != kGeneratorVersion) return std::nullopt;
        LibraryFacts facts;
        facts.seed = json.at("seed").get<std::uint64_t>();
        facts.notes = json.at("notes").get<std::uint64_t>();
        facts.noteBytes = json.at("note_bytes").get<std::uint64_t>();
        for (const auto& word : json.at("words"))
            facts.words.push_back({word.at("label").get<std::string>(), word.at("query").get<std::string>(),
                                   word.at("notes").get<std::uint64_t>()});
        facts.folder = json.at("folder").get<std::string>();
        facts.folderNotes = json.at("folder_notes").get<std::uint64_t>();
        facts.tag = json.at("tag").get<std::string>();
        facts.tagNotes = json.at("tag_notes").get<std::uint64_t>();
        facts.readPath = json.at("read_path").get<std::string>();
        facts.readTitle = json.at("read_title").get<std::string>();
        facts.attachmentName = json.at("attachment_name").get<std::string>();
        facts.attachmentBytes = json.at("attachment_bytes").get<std::uint64_t>();
        return facts;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

LibraryFacts prepareLibrary(const std::string& folder, std::uint64_t notes, std::uint64_t seed) {
    const fs::path root(folder);
    const fs::path manifest = root / "manifest.json";
    const fs::path library = root / "Library";
    if (fs::exists(manifest) && fs::is_directory(library)) {
        std::ifstream in(manifest);
        const Json json = Json::parse(in, nullptr, false);
        if (!json.is_discarded())
            if (auto facts = factsFromJson(json); facts && facts->notes == notes && facts->seed == seed) return *facts;
    }
    // The manifest goes last and first: a library without one is incomplete or stale.
    fs::remove(manifest);
    fs::remove_all(library);
    fs::create_directories(root);
    LibraryFacts facts = generateLibrary(library.string(), notes, seed);
    const fs::path temporary = root / "manifest.json.tmp";
    {
        std::ofstream out(temporary);
        out << factsToJson(facts).dump(2) << "\n";
        if (!out) throw std::runtime_error("cannot write " + temporary.string());
    }
    fs::rename(temporary, manifest);
    return facts;
}

} // namespace vorlo::bench
