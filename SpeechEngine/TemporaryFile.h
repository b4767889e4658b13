#pragma once
// A uniquely named file that is removed when dropped, unless it was moved into place first.

#include <filesystem>
#include <string_view>

namespace speech {

class TemporaryFile {
  public:
    // Creates an empty file in `folder` named after `stem`. Throws std::system_error.
    TemporaryFile(const std::filesystem::path& folder, std::string_view stem);
    ~TemporaryFile();
    TemporaryFile(TemporaryFile&& other) noexcept;
    TemporaryFile& operator=(TemporaryFile&& other) noexcept;
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // Appends bytes; false (with errno set) when they could not all be written, e.g. a full disk.
    bool write(std::string_view bytes);
    std::uintmax_t bytesWritten() const { return written_; }
    // Flushes and renames the file to `destination`, replacing what is there (a directory in the
    // way is removed). Throws std::system_error; on failure the file is still removed later.
    void moveTo(const std::filesystem::path& destination);

  private:
    void close() noexcept;

    std::filesystem::path path_;
    int fd_ = -1;
    std::uintmax_t written_ = 0;
};

}  // namespace speech
