#pragma once
// The token id to text table of a model set, read from its vocabulary file.

#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace speech {

using Vocabulary = std::map<int, std::string>;

// Reads a JSON object of decimal ids to token texts; keys that are not integers are skipped.
// Throws AsrModelsError::loadingFailed with the file's path for a missing, unreadable or
// malformed file.
Vocabulary loadVocabulary(const std::filesystem::path& path);

}  // namespace speech
