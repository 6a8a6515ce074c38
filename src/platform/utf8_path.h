// Paths arrive as UTF-8 bytes (HOME, request fields, the host's project name) and file names
// read back from a folder become ids and archive names: both sides stay UTF-8 on every platform.
#pragma once

#include <filesystem>
#include <string>

namespace quillmere {

// The file-system path named by UTF-8 bytes. Never throws: bytes that are not UTF-8 cannot name
// a file on Windows and become U+FFFD there; elsewhere the bytes are the path.
std::filesystem::path pathFromUtf8(const std::string& bytes);

// The path as UTF-8 bytes, the inverse of pathFromUtf8. Never throws.
std::string utf8FromPath(const std::filesystem::path& path);

// HOME as a path, on Windows USERPROFILE where HOME is unset or empty; empty when neither is set.
// Read afresh on every call.
std::filesystem::path homeDirectory();

// The conversions Windows paths need, built on every platform so that they are tested
// everywhere. Unpaired surrogates pass both ways as their three-byte forms (as the request
// reader decodes a lone \uD800), so every Windows file name comes back as the bytes it went in as.
std::u16string utf16FromUtf8(const std::string& bytes);
std::string utf8FromUtf16(const std::u16string& units);

}  // namespace quillmere
