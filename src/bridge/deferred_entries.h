#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>

#include "platform/directory_listing.h"

namespace quillmere {

// Entries of the requests folder that a poll examined at a price (a status query) without being
// able to take them: a type or an archive that could not be read, a link to something that is no
// file, a claim refused. Each is left alone for a minute of the steady clock, so that a hostile
// entry costs its status queries once a minute rather than at every poll. The memo lives from
// one tick to the next and belongs to one folder: asked about another, it starts afresh.
constexpr std::chrono::seconds kDeferral{60};
// Beyond this many entries still set aside, a new one is not remembered and is examined again at
// the next poll (within that poll's few status queries); those remembered keep their minute.
constexpr std::size_t kMostDeferredEntries = 256;

bool isDeferred(const std::filesystem::path& folder, DirectoryListing::Name name,
                std::chrono::steady_clock::time_point now);
void deferEntry(const std::filesystem::path& folder, DirectoryListing::Name name,
                std::chrono::steady_clock::time_point now);
void forgetDeferredEntries();

}  // namespace quillmere
