#include "host/core/url.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>

namespace zta {

namespace {
constexpr const char kMemoryPrefix[] = "memory://";
constexpr const char kFilePrefix[] = "file://";

std::mutex& StoreMutex() {
  static std::mutex m;
  return m;
}
std::map<std::string, std::vector<char>>& Store() {
  static std::map<std::string, std::vector<char>> s;
  return s;
}

class MemoryOutputStream final : public std::ostringstream {
 public:
  explicit MemoryOutputStream(std::string name) : std::ostringstream(std::ios::binary), name_(std::move(name)) {}
  ~MemoryOutputStream() override {
    const std::string s = str();
    MemoryStore::Put(name_, std::vector<char>(s.begin(), s.end()));
  }

 private:
  std::string name_;
};
}  // namespace

namespace MemoryStore {
void Put(const std::string& name, std::vector<char> bytes) {
  std::lock_guard<std::mutex> lock(StoreMutex());
  Store()[name] = std::move(bytes);
}
bool Get(const std::string& name, std::vector<char>& bytes) {
  std::lock_guard<std::mutex> lock(StoreMutex());
  auto it = Store().find(name);
  if (it == Store().end()) return false;
  bytes = it->second;
  return true;
}
bool Contains(const std::string& name) {
  std::lock_guard<std::mutex> lock(StoreMutex());
  return Store().count(name) > 0;
}
bool Erase(const std::string& name) {
  std::lock_guard<std::mutex> lock(StoreMutex());
  return Store().erase(name) > 0;
}
}  // namespace MemoryStore

Url::Url(const std::string& text) {
  if (text.empty()) return;
  if (text.rfind(kMemoryPrefix, 0) == 0) {
    scheme_ = URLSCHEME::MEMORY;
    path_ = text.substr(sizeof(kMemoryPrefix) - 1);
  } else if (text.rfind(kFilePrefix, 0) == 0) {
    scheme_ = URLSCHEME::FILE;
    path_ = text.substr(sizeof(kFilePrefix) - 1);
  } else {
    scheme_ = URLSCHEME::FILE;
    path_ = text;
  }
}

Url Url::FromSystemPath(const std::string& path) {
  Url u;
  if (!path.empty()) {
    u.scheme_ = URLSCHEME::FILE;
    u.path_ = path;
  }
  return u;
}

Url Url::Memory(const std::string& name) {
  Url u;
  u.scheme_ = URLSCHEME::MEMORY;
  u.path_ = name;
  return u;
}

std::string Url::ToString() const {
  switch (scheme_) {
    case URLSCHEME::NONE: return {};
    case URLSCHEME::FILE: return path_;
    case URLSCHEME::MEMORY: return kMemoryPrefix + path_;
  }
  return {};
}

std::string Url::GetSuffix() const {
  const std::string ext = std::filesystem::path(path_).extension().string();
  return ext.empty() ? ext : ext.substr(1);
}


Result<std::unique_ptr<std::istream>> Url::OpenInputStream() const {
  if (scheme_ == URLSCHEME::MEMORY) {
    std::vector<char> bytes;
    if (!MemoryStore::Get(path_, bytes)) return IoError("no data stored under " + ToString());
    auto s = std::make_unique<std::istringstream>(std::string(bytes.begin(), bytes.end()), std::ios::binary);
    return std::unique_ptr<std::istream>(std::move(s));
  }
  if (scheme_ == URLSCHEME::FILE) {
    auto f = std::make_unique<std::ifstream>(path_, std::ios::binary);
    if (!*f) return IoError("could not open " + path_);
    return std::unique_ptr<std::istream>(std::move(f));
  }
  return IllegalArgumentError("empty url");
}

Result<std::unique_ptr<std::ostream>> Url::OpenOutputStream() const {
  if (scheme_ == URLSCHEME::MEMORY) return std::unique_ptr<std::ostream>(std::make_unique<MemoryOutputStream>(path_));
  if (scheme_ == URLSCHEME::FILE) {
    auto f = std::make_unique<std::ofstream>(path_, std::ios::binary | std::ios::trunc);
    if (!*f) return IoError("could not open " + path_ + " for writing");
    return std::unique_ptr<std::ostream>(std::move(f));
  }
  return IllegalArgumentError("empty url");
}

IODETECT IoDetect(const Url& url) {
  if (url.GetScheme() == URLSCHEME::MEMORY) {
    return MemoryStore::Contains(url.GetPath()) ? IODETECT::FILE : IODETECT::NONEXISTENT;
  }
  if (url.GetScheme() != URLSCHEME::FILE) return IODETECT::NONEXISTENT;
  std::error_code ec;
  const auto st = std::filesystem::status(url.GetPath(), ec);
  if (ec || !std::filesystem::exists(st)) return IODETECT::NONEXISTENT;
  if (std::filesystem::is_directory(st)) return IODETECT::DIRECTORY;
  return IODETECT::FILE;
}

}  // namespace zta
