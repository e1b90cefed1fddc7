#include "library/NoteParser.h"

#include <gtest/gtest.h>

namespace vorlo::library {
namespace {

// Title and body, then each header value that is set and the tags.
std::string describe(const NoteRecord& note) {
    std::string out = note.title + "|" + note.content;
    for (const auto& [key, value] :
         {std::pair{"id", note.id}, {"created", note.created}, {"modified", note.modified}})
        if (value) out += std::string("|") + key + "=" + *value;
    out += std::string(note.pinned ? "|pinned" : "") + (note.archived ? "|archived" : "");
    for (const std::string& tag : note.tags)
        out += "|#" + tag;
    return out;
}

// Wherever the front matter or its title is unusable, the title is the file name's, "Trip.plan".
TEST(NoteParser, ReadsFrontMatterBodyAndTagsAndTakesFolderAndDefaultTitleFromThePath) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "Trip.plan|"},
        {"Just text\n---\n", "Trip.plan|Just text\n---\n"},
        {"---\n---\nBody", "Trip.plan|---\n---\nBody"}, // the opening line feed cannot also close
        {"---\n\n---\nBody", "Trip.plan|Body"},
        {"---\ntitle: \"A\"\n---\n\nBody\n\n", "A|\nBody\n\n"},
        {"---\ntitle: \"A\"\n---", "Trip.plan|---\ntitle: \"A\"\n---"},
        {"---\ntitle: \"A\"\n---\nB\n---\ntitle: \"C\"\n", "A|B\n---\ntitle: \"C\"\n"},
        {"---\r\ntitle: \"A\"\r\n---\r\nB\r\n", "A|B\n"},
        {"---\rtitle: \"A\"\r---\rB\r", "A|B\n"},
        {"---\ntitle: \"A\"\r\n---\r\rB\r\r\nC\rD\n\r", "A|\nB\n\nC\nD\n\n"}, // mixed line ends
        {"\xEF\xBB\xBF---\ntitle: \"A\"\n---\n", "Trip.plan|\xEF\xBB\xBF---\ntitle: \"A\"\n---\n"},
        {"---\ntitle: \"Plans: 2024\"\n---\n", "Plans: 2024|"},
        {"---\ntitle: Groceries\n---\n", "Trip.plan|"},
        {"---\ntitle: Plan\"\n---\n", "Trip.plan|"},
        {"---\ntitle: \"\"\n---\n", "|"},
        {"---\ntitle: \"A\"\ntitle: B\n---\n", "Trip.plan|"}, // the last line decides, even when unusable
        {"---\n\ttitle\u3000:\t \"A\"\u3000 \n---\n", "A|"},
        {"---\ntitle: \"A\" trailing\nTitle: \"A\"\ntitle\n---\n", "Trip.plan|"},
        {"---\ntitle: \"a\\/b \\u00e9\\n\"\n---\n", "a/b \u00E9\n|"},
        {"---\nid: 0a1b2c3d-4e5f-6789-abcd-ef0123456789\ncreated:\nmodified: \"2024\" \n---\n",
         "Trip.plan||id=0A1B2C3D-4E5F-6789-ABCD-EF0123456789|created=|modified=\"2024\""},
        {"---\nid: 1234\npinned: true   \narchived: TRUE\n#tag\n---\n", "Trip.plan||pinned"},
        {"---\nid: {0A1B2C3D-4E5F-6789-ABCD-EF0123456789}\npinned: True\narchived: true\n---\n",
         "Trip.plan||archived"},
        {"---\ntags: [\"b\",\"a\"]\n---\n", "Trip.plan||#a|#b"},
        {"---\ntags: [a, b]\n---\n#c", "Trip.plan|#c|#c"},
        {"---\ntags: [\"a\", 1]\n---\n", "Trip.plan|"},
        {"---\ntags: [\"#a\", \" b \", \"\"]\n---\n#a", "Trip.plan|#a|#|# b |##a|#a"},
        {"---\ntags: [\"work\"]\n---\n#work #Work #apple", "Trip.plan|#work #Work #apple|#Work|#apple|#work"},
        // Of canonically equivalent tags the first stays.
        {"---\ntags: [\"Cafe\u0301\", \"a\\/b\"]\n---\n#Caf\u00E9 #a/b",
         "Trip.plan|#Caf\u00E9 #a/b|#Cafe\u0301|#a/b"},
        {"#\u65E5\u672C #\u0395\u03BB #\u0440\u0443",
         "Trip.plan|#\u65E5\u672C #\u0395\u03BB #\u0440\u0443|#\u0395\u03BB|#\u0440\u0443|#\u65E5\u672C"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(describe(parseNote(text, "Projects/Trip.plan.md", std::nullopt, "rev")), expected) << text;
    // A dot starts the extension only past a name's first character.
    for (const auto& [path, expected] : {std::pair{"N.MD", "|N"},
                                         {"A/B/C/deep.plan.md", "A/B/C|deep.plan"},
                                         {"Projects/README", "Projects|README"},
                                         {"Projects/.md", "Projects|.md"}})
        EXPECT_EQ(std::string(folderOf(path)) + "|" + std::string(defaultTitle(path)), expected);
}

} // namespace
} // namespace vorlo::library
