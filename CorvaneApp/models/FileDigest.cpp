#include "CorvaneApp/models/FileDigest.h"

#include <cerrno>
#include <memory>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

namespace corvane {

std::string sha256HexOfFile(const std::filesystem::path& path) {
    struct Fd {
        int value;
        ~Fd() {
            if (value >= 0) ::close(value);  // a failed close of a read-only file changes nothing
        }
    } fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (fd.value < 0) throw std::system_error(errno, std::generic_category(), path.string());

    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
        throw std::system_error(ENOMEM, std::generic_category(), "SHA-256");
    }
    std::vector<unsigned char> chunk(1048576);
    while (true) {
        ssize_t count = ::read(fd.value, chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw std::system_error(errno, std::generic_category(), path.string());
        if (count == 0) break;
        EVP_DigestUpdate(context.get(), chunk.data(), static_cast<size_t>(count));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context.get(), digest, &length);

    static constexpr char hex[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text.push_back(hex[digest[i] >> 4]);
        text.push_back(hex[digest[i] & 15]);
    }
    return text;
}

}  // namespace corvane
