// The floor: the file-system and hashing work that every scanning tool has to do.
#include "Floor.h"

#include <openssl/evp.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vorlo::bench {
namespace {

bool isMarkdownName(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || name.size() - dot != 3) return false;
    return (name[dot + 1] | 0x20) == 'm' && (name[dot + 2] | 0x20) == 'd';
}

class Walker {
public:
    FloorPass pass;

    void folder(int parentFd, const char* name, bool root) {
        const int fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            if (root) throw std::runtime_error(std::string("cannot open the library ") + name + ": " + std::strerror(errno));
            return;
        }
        DIR* directory = ::fdopendir(fd);
        if (directory == nullptr) {
            ::close(fd);
            return;
        }
        // The whole listing first, as the scan does, so that no file is opened while it is read.
        std::vector<std::pair<std::string, unsigned char>> entries;
        while (const dirent* entry = ::readdir(directory))
            if (entry->d_name[0] != '.') entries.emplace_back(entry->d_name, entry->d_type);
        for (auto& [entryName, type] : entries) {
            if (type == DT_UNKNOWN) {
                // Some file systems leave the type out of the listing.
                struct stat status;
                if (::fstatat(fd, entryName.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode))
                    type = DT_DIR;
            }
            if (type == DT_DIR) {
                if (!(root && entryName == "Vorlo Data")) folder(fd, entryName.c_str(), false);
            } else if (isMarkdownName(entryName)) {
                note(fd, entryName.c_str());
            }
        }
        ::closedir(directory);
    }

private:
    std::vector<unsigned char> buffer_ = std::vector<unsigned char>(1 << 16);

    void note(int folderFd, const char* name) {
        struct stat status;
        if (::fstatat(folderFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode)) return;
        const int fd = ::openat(folderFd, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return;
        if (::fstat(fd, &status) != 0) {
            ::close(fd);
            return;
        }
        if (buffer_.size() < static_cast<std::size_t>(status.st_size) + 1) buffer_.resize(status.st_size + 1);
        std::size_t filled = 0;
        for (;;) {
            if (filled == buffer_.size()) buffer_.resize(buffer_.size() * 2);
            const ssize_t n = ::read(fd, buffer_.data() + filled, buffer_.size() - filled);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            filled += static_cast<std::size_t>(n);
        }
        ::close(fd);
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_Digest(buffer_.data(), filled, digest, &length, EVP_sha256(), nullptr);
        std::uint64_t word = 0;
        std::memcpy(&word, digest, sizeof word);
        pass.checksum ^= word;
        ++pass.notes;
        pass.bytes += filled;
    }
};

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

} // namespace

FloorPass floorPass(const std::string& libraryPath) {
    Walker walker;
    walker.folder(AT_FDCWD, libraryPath.c_str(), true);
    return walker.pass;
}

double durableWriteSeconds(const std::string& folder) {
    const std::string temporary = folder + "/.durable-write.tmp";
    const std::string target = folder + "/durable-write.probe";
    const std::string bytes(4096, 'x');
    const auto start = std::chrono::steady_clock::now();
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) fail("cannot create " + temporary);
    if (::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) || ::fsync(fd) != 0) {
        ::close(fd);
        fail("cannot write " + temporary);
    }
    ::close(fd);
    if (::rename(temporary.c_str(), target.c_str()) != 0) fail("cannot rename " + temporary);
    const int folderFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderFd < 0 || ::fsync(folderFd) != 0) fail("cannot flush " + folder);
    ::close(folderFd);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ::unlink(target.c_str());
    return seconds;
}

} // namespace vorlo::bench
