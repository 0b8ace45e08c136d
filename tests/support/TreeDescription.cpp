#include "tests/support/TreeDescription.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace test {
namespace fs = std::filesystem;
namespace {

void check(bool ok, const std::string& what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

std::string attributesOf(const std::string& path) {
  std::string names(64 * 1024, '\0');
  const ssize_t size = ::llistxattr(path.c_str(), names.data(), names.size());
  std::map<std::string, std::string> attributes;
  for (const char* name = names.data(); size > 0 && name < names.data() + size;
       name += std::strlen(name) + 1) {
    std::string value(64 * 1024, '\0');
    const ssize_t length = ::lgetxattr(path.c_str(), name, value.data(), value.size());
    value.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    attributes[name] = value;
  }
  std::ostringstream text;
  for (const auto& [name, value] : attributes) {
    text << ' ' << name << '=' << std::hash<std::string>()(value);
  }
  return text.str();
}

std::size_t checksum(const std::string& path, std::size_t size) {
  std::string contents(size, '\0');
  std::ifstream file(path, std::ios::binary);
  file.read(contents.data(), static_cast<std::streamsize>(size));
  check(size == 0 || file.good(), path);
  return std::hash<std::string>()(contents);
}

class Describer {
 public:
  explicit Describer(std::string root) : root_(std::move(root)) {}

  std::vector<std::string> describe() {
    std::vector<std::string> paths = {root_};
    if (fs::is_directory(fs::symlink_status(root_))) {
      for (const auto& entry : fs::recursive_directory_iterator(root_)) {
        paths.push_back(entry.path());
      }
    }
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> lines;
    lines.reserve(paths.size());
    for (const std::string& path : paths) lines.push_back(line(path));
    return lines;
  }

 private:
  std::string line(const std::string& path) {
    struct stat status {};
    check(::lstat(path.c_str(), &status) == 0, path);
    std::ostringstream text;
    text << "." << path.substr(root_.size()) << std::oct << " mode=" << status.st_mode << std::dec
         << " owner=" << status.st_uid << ':' << status.st_gid
         << " changed=" << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec;
    if (S_ISREG(status.st_mode)) {
      text << " size=" << status.st_size << " holes=" << (status.st_blocks < status.st_size / 512)
           << " contents=" << checksum(path, static_cast<std::size_t>(status.st_size));
    }
    if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) text << " device=" << status.st_rdev;
    if (S_ISLNK(status.st_mode)) text << " to=" << fs::read_symlink(path).string();
    if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) {
      const auto identity = std::make_pair(status.st_dev, status.st_ino);
      text << " links=" << status.st_nlink << " same as "
           << first_.emplace(identity, path.substr(root_.size())).first->second;
    }
    return text.str() + attributesOf(path);
  }

  std::string root_;
  std::map<std::pair<dev_t, ino_t>, std::string> first_;
};

class HostileTree {
 public:
  explicit HostileTree(const std::string& root) : root_(root) {}

  void make() {
    fs::create_directories(root_);
    makeNames();
    makeFiles();
    makeLinks();
    makeAttributes();
    makeSpecials();
    makePermissions();
  }

 private:
  std::string at(const std::string& relative) const { return root_ + "/" + relative; }

  void file(const std::string& relative, const std::string& contents) const {
    fs::create_directories(fs::path(at(relative)).parent_path());
    std::ofstream stream(at(relative), std::ios::binary);
    stream << contents;
    check(static_cast<bool>(stream.flush()), relative);
  }

  void makeNames() const {
    for (const std::string name : {"new\nline", "star*", " blank ", "\xFF\xFE not UTF-8", "-rf",
                                   "Icon\r", ".hidden", "\xC3\xA9t\xC3\xA9", "a:b", "%n%s%@"}) {
      file("names/" + name, name);
      file("names/in/" + name + "/" + name, name);
    }
    file("names/" + std::string(NAME_MAX, 'x'), "long");
    fs::create_directories(at("empty/folder/in/folder"));
  }

  void makeFiles() const {
    file("files/empty", "");
    file("files/one", "1");
    file("files/block", std::string(4096, 'b'));
    file("files/large", std::string(3 << 20, 'l') + "end");
    for (int i = 0; i < 100; ++i) file("many/" + std::to_string(i), std::string(1000, 'm'));
    sparse("files/hole at the end", {0}, 1 << 20);
    sparse("files/hole at the start", {1 << 20}, (1 << 20) + 4096);
    sparse("files/holes", {65536, 1 << 20, 3 << 20}, 4 << 20);
    sparse("files/only a hole", {}, 8 << 20);
    const timespec times[2] = {{1000000000, 1}, {1111111111, 123456789}};
    check(::utimensat(AT_FDCWD, at("files/one").c_str(), times, 0) == 0, "times");
    const timespec before[2] = {{-1000, 5}, {-1000, 999999999}};
    check(::utimensat(AT_FDCWD, at("files/block").c_str(), before, 0) == 0, "times");
  }

  void sparse(const std::string& relative, const std::vector<off_t>& data, off_t size) const {
    const int out = ::open(at(relative).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    check(out >= 0 && ::ftruncate(out, size) == 0, relative);
    for (const off_t offset : data) check(::pwrite(out, "data", 4, offset) == 4, relative);
    ::close(out);
  }

  void makeLinks() const {
    file("links/original", "linked");
    fs::create_directories(at("links/deep/er"));
    fs::create_hard_link(at("links/original"), at("links/second"));
    fs::create_hard_link(at("links/original"), at("links/deep/er/third"));
    fs::create_symlink("original", at("links/relative"));
    fs::create_symlink("/etc/passwd", at("links/absolute"));
    fs::create_symlink("../../nowhere", at("links/dangling"));
    fs::create_symlink("..", at("links/up"));
    fs::create_symlink(std::string(3000, 'y'), at("links/long"));
    check(::link(at("links/long").c_str(), at("links/long too").c_str()) == 0, "link to a link");
  }

  void makeAttributes() const {
    file("attributes/file", "x");
    ::setxattr(at("attributes/file").c_str(), "user.note", "value", 5, 0);
    ::setxattr(at("attributes/file").c_str(), "user.empty", "", 0, 0);
    const std::string large(2000, 'v');
    ::setxattr(at("attributes/file").c_str(), "user.large", large.data(), large.size(), 0);
    ::setxattr(at("attributes").c_str(), "user.folder", "value", 5, 0);
    // An access list in its binary form: owner rw, user 61002 r, group r, mask r, others none.
    const unsigned char list[] = {2,    0, 0, 0,                          //
                                  1,    0, 6, 0, 0xFF, 0xFF, 0xFF, 0xFF,  //
                                  2,    0, 4, 0, 0x4A, 0xEE, 0x00, 0x00,  //
                                  4,    0, 4, 0, 0xFF, 0xFF, 0xFF, 0xFF,  //
                                  0x10, 0, 4, 0, 0xFF, 0xFF, 0xFF, 0xFF,  //
                                  0x20, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    file("attributes/listed", "x");
    ::setxattr(at("attributes/listed").c_str(), "system.posix_acl_access", list, sizeof list, 0);
    fs::create_directories(at("attributes/inheriting"));
    ::setxattr(at("attributes/inheriting").c_str(), "system.posix_acl_default", list, sizeof list,
               0);
  }

  void makeSpecials() const {
    fs::create_directories(at("special"));
    check(::mkfifo(at("special/pipe").c_str(), 0620) == 0, "pipe");
    check(::mknod(at("special/socket").c_str(), S_IFSOCK | 0600, 0) == 0, "socket");
    if (::geteuid() != 0) return;
    check(::mknod(at("special/null").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0, "device");
    check(::mknod(at("special/disk").c_str(), S_IFBLK | 0600, makedev(7, 200)) == 0, "device");
    file("owned/file", "x");
    check(::chown(at("owned/file").c_str(), 61001, 61002) == 0, "chown");
    check(::chown(at("owned").c_str(), 61002, 0) == 0, "chown");
    check(::lchown(at("links/relative").c_str(), 61001, 61001) == 0, "lchown");
    const char capability[20] = {1, 0, 0, 2, 0, 4};
    file("owned/capable", "x");
    ::setxattr(at("owned/capable").c_str(), "security.capability", capability, sizeof capability,
               0);
  }

  void makePermissions() const {
    for (const mode_t mode : {04755U, 02755U, 01644U, 0400U, 0777U, 0U}) {
      const std::string name = "modes/" + std::to_string(mode);
      file(name, "x");
      check(::chmod(at(name).c_str(), mode) == 0 || ::geteuid() != 0, name);
    }
    if (::geteuid() != 0) check(::chmod(at("modes/0").c_str(), 0400) == 0, "unreadable");
    file("locked/inside", "x");
    check(::chmod(at("locked").c_str(), 0555) == 0, "locked");
    check(::chmod(at("empty").c_str(), 03775) == 0, "sticky");
    const timespec times[2] = {{1000000000, 1}, {1222222222, 222222222}};
    check(::utimensat(AT_FDCWD, at("locked").c_str(), times, 0) == 0, "times");
  }

  const std::string& root_;
};

}  // namespace

std::vector<std::string> describeTree(const std::string& root) {
  return Describer(root).describe();
}

void setTimesToASecond(const std::string& root) {
  std::vector<std::string> paths = {root};
  for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
    paths.push_back(item.path());
  }
  const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
  for (const std::string& path : paths) {
    check(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, path);
  }
}

void makeHostileTree(const std::string& root) {
  HostileTree(root).make();
}

}  // namespace test
