#pragma once
// Every limit of the system. Each bound is inclusive: the value named is still accepted.

#include <cstddef>
#include <cstdint>

namespace vorlo {

inline constexpr std::size_t kMaximumTitleCharacters = 1000;       // title after trimming
inline constexpr std::size_t kMaximumShortStringCharacters = 1000; // folder, tag, attachment_name before trimming
inline constexpr std::size_t kMaximumQueryCharacters = 1000;       // query after trimming
inline constexpr std::uint64_t kMaximumNoteBytes = 16777216;       // content argument, rendered note, note file
inline constexpr std::size_t kMaximumTags = 256;                   // tags before de-duplication
inline constexpr std::size_t kMaximumTagCharacters = 100;          // one tag after trimming and stripping "#"
inline constexpr long long kMinimumResultLimit = 1;
inline constexpr long long kMaximumResultLimit = 200;
inline constexpr long long kDefaultListLimit = 50;
inline constexpr long long kDefaultSearchLimit = 20;
inline constexpr long long kMaximumReadCharacters = 250000;
inline constexpr std::uint64_t kMaximumAttachmentBytes = 33554432;

inline constexpr std::size_t kMaximumInputBufferBytes = 1048576;   // unfinished input held by the reader
inline constexpr std::uint64_t kMaximumPreferencesBytes = 1048576;
inline constexpr std::uint64_t kMaximumLockRecordBytes = 1048576;
inline constexpr std::size_t kPreviewCharacters = 240;
inline constexpr std::size_t kSnippetCharacters = 320;
inline constexpr std::size_t kSnippetCharactersBeforeMatch = 100;

} // namespace vorlo
