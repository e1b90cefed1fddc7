// The MIME types of the attachment extensions that clients are known to handle.
#include "library/MimeTypes.h"

#include "platform/CaseMapping.h"

#include <string>

namespace vorlo::library {
namespace {

struct MimeEntry {
    std::string_view extension;
    std::string_view type;
};

// The prefix of a type decides how read_attachment delivers the file: "image/" as an image,
// "text/" as text when it is UTF-8, anything else as an embedded resource.
constexpr MimeEntry kMimeTypes[] = {
    {"png", "image/png"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"gif", "image/gif"},
    {"webp", "image/webp"},
    {"heic", "image/heic"},
    {"heif", "image/heif"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"bmp", "image/bmp"},
    {"svg", "image/svg+xml"},
    {"txt", "text/plain"},
    {"log", "text/plain"},
    {"md", "text/markdown"},
    {"markdown", "text/markdown"},
    {"csv", "text/csv"},
    {"html", "text/html"},
    {"htm", "text/html"},
    {"css", "text/css"},
    {"js", "text/javascript"},
    {"pdf", "application/pdf"},
    {"json", "application/json"},
    {"yaml", "application/yaml"},
    {"yml", "application/yaml"},
    {"xml", "application/xml"},
    {"zip", "application/zip"},
    {"mp4", "video/mp4"},
    {"mov", "video/quicktime"},
    {"mp3", "audio/mpeg"},
    {"wav", "audio/wav"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
};

} // namespace

std::string_view mimeType(std::string_view extension) {
    const std::string lower = text::lowercased(extension);
    for (const auto& entry : kMimeTypes)
        if (entry.extension == lower) return entry.type;
    return "application/octet-stream";
}

} // namespace vorlo::library
