#include "support/folder_events.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace testing_support {

FolderEvents::FolderEvents(const std::filesystem::path& bridge)
    : descriptor_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (descriptor_ < 0) throw std::runtime_error("inotify_init1 failed");
  bridge_ = ::inotify_add_watch(descriptor_, bridge.c_str(), IN_MODIFY);
  claimed_ =
      ::inotify_add_watch(descriptor_, (bridge / "claimed").c_str(), IN_MOVED_TO | IN_MOVED_FROM);
  responses_ = ::inotify_add_watch(descriptor_, (bridge / "responses").c_str(), IN_MOVED_TO);
  requests_ = ::inotify_add_watch(descriptor_, (bridge / "requests").c_str(), IN_OPEN);
  if (bridge_ < 0 || claimed_ < 0 || responses_ < 0 || requests_ < 0)
    throw std::runtime_error("inotify_add_watch failed");
}

FolderEvents::~FolderEvents() {
  ::close(descriptor_);
}

std::vector<std::string> FolderEvents::take() {
  std::vector<std::string> events;
  alignas(inotify_event) char buffer[64 * 1024];
  ssize_t length;
  while ((length = ::read(descriptor_, buffer, sizeof buffer)) > 0) {
    for (ssize_t at = 0; at < length;) {
      inotify_event event;
      std::memcpy(&event, buffer + at, sizeof event);
      const std::string name(event.len > 0 ? buffer + at + sizeof event : "");
      at += static_cast<ssize_t>(sizeof event + event.len);
      if (event.wd == bridge_ && name == "delivery.log") {
        events.push_back("delivery.log written");
      } else if (event.wd == claimed_) {
        events.push_back("claimed/" + name + ((event.mask & IN_MOVED_TO) ? " in" : " out"));
      } else if (event.wd == responses_) {
        events.push_back("responses/" + name + " in");
      } else if (event.wd == requests_ && name.empty()) {
        events.push_back("requests opened");
      }
    }
  }
  return events;
}

}  // namespace testing_support
