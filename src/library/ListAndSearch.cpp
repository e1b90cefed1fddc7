// The list_notes and search_notes tools.
#include "library/Summaries.h"
#include "platform/Errors.h"
#include "platform/Text.h"
#include "platform/Time.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"
#include "tools/Validators.h"

#include <algorithm>

namespace vorlo {
namespace {

Json resultOf(Json notes, std::size_t totalMatches) {
    Json result = Json::object();
    result["returned"] = notes.size();
    result["notes"] = std::move(notes);
    result["total_matches"] = totalMatches;
    return result;
}

// The `modified` text that the note's summary shows (null counting as ""), worked out without
// building the summary, which only the returned notes get.
std::string shownModified(const NoteRecord& note) {
    if (note.modified) return *note.modified;
    if (note.fileModificationDate) return formatIso8601(*note.fileModificationDate);
    return {};
}

bool containsFolded(std::string_view text, const std::string& foldedQuery) {
    return text::fold(text).find(foldedQuery) != std::string::npos;
}

// 2 when the title holds the query, 1 when only the body or a tag does, 0 for no match.
int searchScore(const NoteRecord& note, const std::string& foldedQuery) {
    if (containsFolded(note.title, foldedQuery)) return 2;
    for (const auto& tag : note.tags)
        if (containsFolded(tag, foldedQuery)) return 1;
    return containsFolded(note.content, foldedQuery) ? 1 : 0;
}

} // namespace

Json VorloMCPServer::listNotes(const Json& arguments) const {
    const long long limit = tools::resultLimit(tools::argument(arguments, "limit"), kDefaultListLimit);
    const auto folder = tools::optionalString(tools::argument(arguments, "folder"), "folder");
    const auto tag = tools::optionalString(tools::argument(arguments, "tag"), "tag");

    std::vector<NoteRecord> notes = scanNotes();
    std::erase_if(notes, [&](const NoteRecord& note) {
        if (folder && !text::caseInsensitiveEqual(note.relativeFolder, *folder)) return true;
        return tag && std::none_of(note.tags.begin(), note.tags.end(), [&](const std::string& noteTag) {
                   return text::caseInsensitiveEqual(noteTag, *tag);
               });
    });
    std::stable_sort(notes.begin(), notes.end(), library::newestFirst);

    Json shown = Json::array();
    const std::size_t count = std::min(notes.size(), static_cast<std::size_t>(limit));
    for (std::size_t i = 0; i < count; ++i)
        shown.push_back(library::summary(notes[i]));
    return resultOf(std::move(shown), notes.size());
}

Json VorloMCPServer::searchNotes(const Json& arguments) const {
    const Json* queryValue = tools::argument(arguments, "query");
    if (queryValue == nullptr || !queryValue->is_string()) throw ServerError("query is required.");
    const std::string_view query = text::trimWhitespaceAndNewlines(queryValue->get_ref<const std::string&>());
    if (query.empty() || text::hasMoreCharactersThan(query, kMaximumQueryCharacters))
        throw ServerError("query must contain 1 to 1000 characters.");
    const long long limit = tools::resultLimit(tools::argument(arguments, "limit"), kDefaultSearchLimit);
    const std::string foldedQuery = text::fold(query);

    struct Match {
        std::size_t index;
        int score;
        std::string modified;
    };
    const std::vector<NoteRecord> notes = scanNotes();
    std::vector<Match> matches;
    // A query that folds to nothing, such as a lone combining accent, matches no note rather than all.
    if (!foldedQuery.empty()) {
        for (std::size_t i = 0; i < notes.size(); ++i)
            if (const int score = searchScore(notes[i], foldedQuery); score > 0)
                matches.push_back(Match{i, score, shownModified(notes[i])});
    }
    // The `modified` texts compare by code point (byte order of UTF-8), not as dates: texts of one
    // form then come out newest first, and those of other forms fall where their characters put them.
    std::stable_sort(matches.begin(), matches.end(), [](const Match& a, const Match& b) {
        if (a.score != b.score) return a.score > b.score;
        return a.modified > b.modified;
    });

    Json shown = Json::array();
    const std::size_t count = std::min(matches.size(), static_cast<std::size_t>(limit));
    for (std::size_t i = 0; i < count; ++i) {
        const NoteRecord& note = notes[matches[i].index];
        Json entry = library::summary(note);
        entry["snippet"] = library::snippet(note.content, query);
        shown.push_back(std::move(entry));
    }
    return resultOf(std::move(shown), matches.size());
}

} // namespace vorlo
