// The list_notes and search_notes tools.
//
// Both stream the walk instead of holding the whole library: each note is judged from its header
// and body as it arrives, counted when it passes, and kept, with its bytes, only while it stands
// among the best `limit` so far. The kept notes alone are hashed, parsed in full and summarised at
// the end. The order of the best is that of a stable sort of the whole walk: the walk's position
// breaks every tie the comparator leaves.
#include "library/InlineTags.h"
#include "library/LibraryScan.h"
#include "library/NoteParser.h"
#include "library/Summaries.h"
#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Errors.h"
#include "platform/Folding.h"
#include "platform/Json.h"
#include "platform/Time.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"
#include "tools/Validators.h"

#include <algorithm>
#include <cstring>

namespace vorlo {
namespace {

Json resultOf(Json notes, std::size_t totalMatches) {
    Json result = Json::object();
    result["returned"] = notes.size();
    result["notes"] = std::move(notes);
    result["total_matches"] = totalMatches;
    return result;
}

// A note's text as the parser sees it, without building its record: the line ends normalised (in
// a scratch copy, for the few files that have carriage returns) and the header split off.
class NoteView {
  public:
    NoteView(const std::string& bytes, std::string& scratch) : text_(bytes) {
        if (std::memchr(bytes.data(), '\r', bytes.size()) != nullptr) {
            scratch = bytes;
            library::normaliseLineEnds(scratch);
            text_ = scratch;
        }
        parts_ = library::splitNote(text_);
    }
    const library::NoteParts& parts() const { return parts_; }
    std::string_view body() const { return text_.substr(parts_.bodyStart); }

    // Header tags then, unless left out, inline tags: the record's tag list with its repeats and
    // canonically equivalent spellings still in, which changes nothing for a test of whether any of
    // them qualifies. The inline ones are tested as they are found, with no set of the distinct ones.
    template <typename Predicate> bool anyTag(Predicate qualifies, bool inlineTags = true) const {
        if (parts_.tags)
            if (const auto tags = decodeDistinctJsonStringArray(*parts_.tags))
                if (std::any_of(tags->begin(), tags->end(), qualifies)) return true;
        if (!inlineTags) return false;
        bool found = false;
        library::forEachInlineTag(body(), [&](std::string_view tag) { return !(found = qualifies(tag)); });
        return found;
    }

  private:
    std::string_view text_;
    library::NoteParts parts_;
};

// The best `limit` entries in the order `before`, a max-heap with the worst kept one on top.
template <typename Entry, typename Before> class BestEntries {
  public:
    BestEntries(std::size_t limit, Before before) : limit_(limit), before_(before) { kept_.reserve(limit); }
    bool full() const { return kept_.size() == limit_; }
    const Entry& worst() const { return kept_.front(); }
    void add(Entry entry) {
        if (full()) {
            std::pop_heap(kept_.begin(), kept_.end(), before_);
            kept_.back() = std::move(entry);
        } else {
            kept_.push_back(std::move(entry));
        }
        std::push_heap(kept_.begin(), kept_.end(), before_);
    }
    // Best first.
    std::vector<Entry> take() {
        std::sort_heap(kept_.begin(), kept_.end(), before_);
        return std::move(kept_);
    }

  private:
    std::size_t limit_;
    Before before_;
    std::vector<Entry> kept_;
};

} // namespace

Json VorloMCPServer::listNotes(const Json& arguments) const {
    const long long limit = tools::resultLimit(tools::argument(arguments, "limit"), kDefaultListLimit);
    const auto folder = tools::optionalString(tools::argument(arguments, "folder"), "folder");
    const auto tag = tools::optionalString(tools::argument(arguments, "tag"), "tag");

    struct Entry {
        Timestamp date;
        std::string title;
        std::size_t position; // in the walk
        library::NoteFile file;
    };
    // newestFirst, with the walk's position deciding where it sees no difference.
    const auto before = [](const Entry& a, const Entry& b) {
        if (a.date != b.date) return a.date > b.date;
        if (const int order = text::localizedCaseInsensitiveCompare(a.title, b.title); order != 0)
            return order < 0;
        return a.position < b.position;
    };
    BestEntries<Entry, decltype(before)> best(static_cast<std::size_t>(limit), before);
    std::size_t total = 0;
    std::string scratch;

    // Each note's folder and tags are held against the wanted ones, whose comparison keys are made
    // once. The folder is known from the path alone, so a note in another folder is never even read.
    std::optional<text::CaselessMatch> wantedTag, wantedFolder;
    if (tag) wantedTag.emplace(*tag);
    if (folder) wantedFolder.emplace(*folder);
    library::PathFilter inFolder;
    if (wantedFolder)
        inFolder = [&](std::string_view path) { return wantedFolder->matches(library::folderOf(path)); };
    // The tags are found in the whole body, the costly part of a listing: that is done on the
    // reading threads, before the notes are taken in order.
    library::JudgeMaker tagged;
    if (wantedTag)
        tagged = [&] {
            return [&wantedTag, scratch = std::string()](library::NoteFile& file) mutable {
                return NoteView(file.bytes, scratch).anyTag([&](std::string_view t) {
                    return wantedTag->matches(t);
                });
            };
        };
    library::walkNoteFiles(
        libraryURL_,
        [&](library::NoteFile&& file) {
            const std::size_t position = total;
            const NoteView view(file.bytes, scratch);
            ++total;
            Entry entry{library::listingDate(view.parts().modified, file.modified), {}, position, {}};
            // A later note that ties with the worst kept one goes behind it, so the title, which costs a
            // JSON decoding, is needed only when the dates are equal.
            if (best.full() && entry.date < best.worst().date) return;
            entry.title = library::noteTitle(view.parts(), file.relativePath);
            if (best.full() && !before(entry, best.worst())) return;
            entry.file = std::move(file);
            best.add(std::move(entry));
        },
        inFolder, tagged);

    Json shown = Json::array();
    for (Entry& entry : best.take())
        shown.push_back(library::summary(library::makeRecord(std::move(entry.file))));
    return resultOf(std::move(shown), total);
}

Json VorloMCPServer::searchNotes(const Json& arguments) const {
    const Json* queryValue = tools::argument(arguments, "query");
    if (queryValue == nullptr || !queryValue->is_string()) throw ServerError("query is required.");
    const std::string_view query = text::trimWhitespaceAndNewlines(queryValue->get_ref<const std::string&>());
    if (query.empty() || text::hasMoreCharactersThan(query, kMaximumQueryCharacters))
        throw ServerError("query must contain 1 to 1000 characters.");
    const long long limit = tools::resultLimit(tools::argument(arguments, "limit"), kDefaultSearchLimit);
    const text::FoldedSearch search(query);

    struct Entry {
        int score;
        std::string modified; // the summary's, null counting as ""
        std::size_t position;
        library::NoteFile file;
    };
    // The `modified` texts compare by code point (byte order of UTF-8), not as dates: texts of one
    // form then come out newest first, and those of other forms fall where their characters put them.
    const auto before = [](const Entry& a, const Entry& b) {
        if (a.score != b.score) return a.score > b.score;
        if (a.modified != b.modified) return a.modified > b.modified;
        return a.position < b.position;
    };
    BestEntries<Entry, decltype(before)> best(static_cast<std::size_t>(limit), before);
    std::size_t total = 0;
    std::string scratch;

    // A query that folds to nothing, such as a lone combining accent, matches no note rather than
    // all; the walk still runs, so that a library that cannot be read says so.
    library::PathFilter nothing;
    if (search.folded().empty()) nothing = [](std::string_view) { return false; };
    // The matching is done on the reading threads, each with its own copy of the search, whose
    // table of foldings grows as it meets characters; the notes that match come in walk order.
    const library::JudgeMaker scored = [&] {
        return [search, scratch = std::string()](library::NoteFile& file) mutable {
            const NoteView view(file.bytes, scratch);
            // 2 when the title holds the query, 1 when only the body or a tag does. An inline tag is
            // a stretch of the body, so when no stretch of the body can hold the query, none holds it.
            bool noStretchOfBody = false;
            if (search.foundIn(library::noteTitle(view.parts(), file.relativePath)))
                file.mark = 2;
            else if (search.foundIn(view.body(), &noStretchOfBody) ||
                     view.anyTag([&](std::string_view t) { return search.foundIn(t); }, !noStretchOfBody))
                file.mark = 1;
            return file.mark != 0;
        };
    };
    library::walkNoteFiles(
        libraryURL_,
        [&](library::NoteFile&& file) {
            // Only the matches come, so their count is their position in the walk's order.
            const std::size_t at = total++;
            if (best.full() && file.mark < best.worst().score) return;
            const NoteView view(file.bytes, scratch);
            Entry entry{
                file.mark, library::shownModified(view.parts().modified, file.modified).value_or(""), at, {}};
            if (best.full() && !before(entry, best.worst())) return;
            entry.file = std::move(file);
            best.add(std::move(entry));
        },
        nothing, scored);

    Json shown = Json::array();
    for (Entry& entry : best.take()) {
        const NoteRecord note = library::makeRecord(std::move(entry.file));
        Json summary = library::summary(note);
        summary["snippet"] = library::snippet(note.content, query);
        shown.push_back(std::move(summary));
    }
    return resultOf(std::move(shown), total);
}

} // namespace vorlo
