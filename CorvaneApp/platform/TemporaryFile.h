#pragma once
// A uniquely named file of ours that is removed when dropped, unless it was moved into place:
// partial downloads, and the new copy of a file that is replaced whole.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace corvane {

class TemporaryFile {
  public:
    // Creates an empty owner-only file in `folder` named `prefix`, six random characters and
    // `suffix`. Throws std::system_error that names the folder.
    TemporaryFile(const std::filesystem::path& folder, std::string_view prefix,
                  std::string_view suffix = {});
    ~TemporaryFile();
    TemporaryFile(TemporaryFile&& other) noexcept;
    TemporaryFile& operator=(TemporaryFile&& other) noexcept;
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // Appends bytes; false (with errno set) when they could not all be written, e.g. a full disk.
    bool write(std::string_view bytes);
    std::uintmax_t bytesWritten() const { return written_; }
    // Throws std::system_error.
    void setPermissions(mode_t mode);
    // Closes the file; `durable` flushes its bytes to the disk first. Throws std::system_error
    // (a full disk may show only here).
    void finish(bool durable = true);
    // Finishes, then renames the file onto `destination`, replacing a file there; `durable`
    // also flushes the folder, so that the new file survives a crash. From then on the file is no
    // longer ours to remove. Throws std::system_error; on failure the file is still removed when
    // dropped. Scratch data that is read once (downloaded audio) needs no durability.
    void moveTo(const std::filesystem::path& destination, bool durable = true);

  private:
    void close() noexcept;

    std::filesystem::path path_;
    int fd_ = -1;
    std::uintmax_t written_ = 0;
};

}  // namespace corvane
