#pragma once
// A library made from a seed, full of what makes walking, looking up and ordering hard: names that
// compare equal in other spellings, names that are not UTF-8, hidden entries, the private folder,
// folders that cannot be listed, files at and past the size limit, FIFOs, links to files, folders
// and nowhere; and notes whose few distinct titles, dates and tags leave every tie-break work to do.
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::testing {

inline std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> pieces(1);
    for (const char c : text)
        c == separator ? (void)pieces.emplace_back() : pieces.back().push_back(c);
    return pieces;
}

// A name is a stem and an extension, each in one of the spellings of its group ("|" between them),
// which compare equal: in case, by full case folding (the Kelvin sign is k, "\u00df" is "ss"), by
// canonical equivalence (the Ohm sign is omega; marks in either order). Stems 9 and 10 are not
// UTF-8; 11 and 12 are what a lenient decoder would make of them and a look-alike of "/"; then a
// ligature, the dotted capital I and the dotless i, which matches neither i nor I.
inline const std::vector<std::string> kStems =
    split("plan|Plan|PLAN;caf\u00e9|cafe\u0301|CAF\u00c9|CAFE\u0301;stra\u00dfe|STRASSE|Strasse;\u212a|k|K;"
          "\u2126|\u03c9|\u03a9;\u1e69|s\u0323\u0307|s\u0307\u0323|\u1e68;Vorlo Data|vorlo data|VORLO DATA;"
          "~draft|~DRAFT;a|A;\xff;x\xc3|X\xc3;\xef\xbf\xbd;\xe2\x88\x95;\ufb01le|file|FILE;\u0130|i\u0307|"
          "I\u0307;\u0131",
          ';');
inline const std::vector<std::string> kExtensions = split(".md|.MD|.Md|.mD;;.txt|.TXT;.markdown", ';');

struct Name {
    std::size_t stem, extension;
    bool hidden;
    std::size_t number; // told apart by a number as well, so that a wide folder can hold many
};

// Every entry made, with the groups of its path's components, to be asked for in other spellings.
struct Entry {
    std::vector<Name> names;
    std::string relativePath;
};

class GeneratedLibrary {
  public:
    // About `width` entries in the root and up to that many in each folder, three levels deep.
    GeneratedLibrary(std::uint64_t seed, std::size_t width) : random_(seed), width_(width) {
        if (below(10) < 6) folder({Name{6, 1, false, 0}}, "Vorlo Data", 1, true, 6); // the private folder
        fill({}, "", width_, 0, true);
    }

    const TempLibrary& library() const { return library_; }
    const std::vector<Entry>& entries() const { return entries_; }
    // The notes that a walk must find: what the rules admit, worked out from how each entry was made.
    const std::set<std::string>& notes() const { return notes_; }

    std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
    template <class T> const T& pick(const std::vector<T>& items) { return items[below(items.size())]; }
    // One of the choices that `choices` separates by "|".
    std::string pick(std::string_view choices) { return pick(split(choices, '|')); }
    std::string spell(const std::vector<Name>& names) {
        std::string path;
        for (const Name& name : names)
            path += (path.empty() ? "" : "/") + std::string(name.hidden ? "." : "") +
                    pick(kStems[name.stem]) + (name.number ? " " + std::to_string(name.number) : "") +
                    pick(kExtensions[name.extension]);
        return path;
    }
    // Mostly Markdown names of a few groups, so that notes and equivalent names are common; in a wide
    // library most entries are notes.
    Name randomName() {
        return Name{below(10) < 7 ? below(4) : below(kStems.size()),
                    below(width_ > 10 ? 5 : 2) ? 0 : below(kExtensions.size()), below(100) < 8,
                    width_ > 10 ? below(width_) : 0};
    }

  private:
    TempLibrary library_;
    std::mt19937_64 random_;
    std::size_t width_;
    std::vector<Entry> entries_;
    std::set<std::string> notes_;
    bool atLimitMade_ = false;

    std::string noteText() {
        std::string text;
        if (below(10) != 0) {
            text = "---\ntitle: \"" + pick("Alpha|alpha|Beta|b\u00e9ta|\u00c9cole|ecole") + "\"\n";
            if (below(6) != 0)
                text += "modified: " +
                        pick("2024-05-01T10:00:00Z|2024-05-01T12:00:00+02:00|2023-01-01T00:00:00Z|yesterday|"
                             "2024-05-01T10:00:00.000Z|") +
                        "\n";
            text += "tags: " +
                    pick("[]|[\"work\"]|[\"Work\",\"idea\"]|[\"caf\u00e9\"]|[\"Cafe\u0301\"]|not json");
            text += "\n---\n";
        }
        for (std::size_t w = below(12); w > 0; --w)
            text += pick("lantern|LANTERN|cr\u00e8me br\u00fbl\u00e9e|Cre\u0300me Bru\u0302le\u0301e|#work|"
                         "#idea/sub|stra\u00dfe|STRASSE|\u0130stanbul|\ufb01ne") +
                    (below(4) == 0 ? "\n" : " ");
        if (below(20) == 0) text += std::string(70000, 'x') + " lantern"; // longer than one read
        if (below(10) == 0)
            for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2))
                text.insert(at, "\r");
        return text;
    }

    void fill(const std::vector<Name>& parent, const std::string& folderPath, std::size_t count, int depth,
              bool reachable) {
        for (; count > 0; --count) {
            std::vector<Name> names = parent;
            names.push_back(randomName());
            const std::string spelled = spell({names.back()});
            const std::string path = folderPath.empty() ? spelled : folderPath + "/" + spelled;
            if (library_.exists(path)) continue; // the same bytes twice
            const std::string absolute = library_.path(path);
            // Deep enough, a folder becomes a note; in a wide library, so does every other odd entry.
            std::size_t kind = below(100);
            if ((depth >= 3 && kind >= 45 && kind < 67) || (width_ > 10 && kind >= 67 && below(2))) kind = 0;
            bool note = kind < 45;
            if (note) {
                library_.write(path, noteText());
                library_.touch(path, 1700000000 + static_cast<long long>(below(3)) * 86400);
            } else if (kind < 67) {
                folder(names, path, depth + 1, reachable && (kind < 65 || ::geteuid() == 0),
                       std::min<std::size_t>(width_, 12));
                if (kind >= 65) ::chmod(absolute.c_str(), 0); // a folder that cannot be listed is passed over
                continue;
            } else if (kind < 73) {
                library_.write(path, "bad \xff bytes");
            } else if (kind < 78) { // past the size limit, or once a small library exactly at it
                note = kind == 77 && !atLimitMade_ && width_ <= 10;
                atLimitMade_ |= note;
                library_.write(path, "");
                EXPECT_EQ(
                    ::truncate(absolute.c_str(), static_cast<off_t>(kMaximumNoteBytes + (note ? 0 : 1))), 0);
            } else if (kind < 82) {
                EXPECT_EQ(::mkfifo(absolute.c_str(), 0600), 0);
            } else { // to the library itself, so looping back, to an entry made so far, or to nowhere
                const bool toRoot = kind < 86 || entries_.empty();
                library_.link(path, kind >= 98 ? library_.path("nowhere")
                                    : toRoot   ? library_.library()
                                               : library_.path(pick(entries_).relativePath));
            }
            const bool plainNames = std::none_of(names.begin(), names.end(), [](const Name& name) {
                return name.hidden || name.stem == 9 || name.stem == 10;
            });
            if (note && reachable && plainNames && names.back().extension == 0 &&
                !path.starts_with("Vorlo Data/") && names.front().stem != 7)
                notes_.insert(path);
            entries_.push_back(Entry{std::move(names), path});
        }
    }

    void folder(const std::vector<Name>& names, const std::string& path, int depth, bool reachable,
                std::size_t width) {
        library_.makeFolder(path);
        entries_.push_back(Entry{names, path});
        fill(names, path, below(width), depth, reachable);
    }
};

} // namespace vorlo::testing
