#include "CorvaneApp/models/CacheError.h"

namespace corvane {

CacheError CacheError::httpError(std::int64_t status) {
    CacheError error(Kind::httpError, "HTTP " + std::to_string(status) + " from model download");
    error.status_ = status;
    return error;
}

CacheError CacheError::sha256Mismatch(std::string expected, std::string actual) {
    CacheError error(Kind::sha256Mismatch,
                     "SHA-256 mismatch (expected " + expected + ", got " + actual + ")");
    error.expected_ = std::move(expected);
    error.actual_ = std::move(actual);
    return error;
}

CacheError CacheError::ioError(std::string path) {
    CacheError error(Kind::ioError, "I/O error at " + path);
    error.path_ = std::move(path);
    return error;
}

CacheError CacheError::cancelled() {
    return CacheError(Kind::cancelled, "ModelCache cancelled before completion");
}

}  // namespace corvane
