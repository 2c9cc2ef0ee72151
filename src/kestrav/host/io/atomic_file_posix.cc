#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "kestrav/host/io/atomic_file.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::Io {
namespace {

constexpr mode_t kCreationMode = 0640;
constexpr mode_t kPermissions = 0777;
constexpr int kMostLinks = 40;

// The file that a chain of symbolic links leads to, which need not exist.
int FollowLinks(std::filesystem::path& file) {
  std::error_code error;
  for (int links = 0; std::filesystem::is_symlink(file, error); ++links) {
    if (links == kMostLinks) return ELOOP;
    const std::filesystem::path target = std::filesystem::read_symlink(file, error);
    if (error) return error.value();
    file = target.is_absolute() ? target : file.parent_path() / target;
  }
  return 0;
}

// A lock on the folder, where the file system has locks, keeps the temporary file to one writer. It
// ends with the handle.
int OpenFolder(const std::filesystem::path& path, FileHandle& folder) {
  const char* const name = path.empty() ? "." : path.c_str();
  folder = FileHandle(::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.IsOpen()) return errno;
  while (::flock(folder.Get(), LOCK_EX) != 0 && errno == EINTR) {
  }
  return 0;
}

// Gives the new file the rights of the one that it replaces, if there is one.
int TakeRights(const FileHandle& folder, const std::string& old_name, const FileHandle& file) {
  struct stat old {};
  if (::fstatat(folder.Get(), old_name.c_str(), &old, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? 0 : errno;
  }
  if (!S_ISREG(old.st_mode)) return S_ISDIR(old.st_mode) ? EISDIR : EINVAL;
  // Only a privileged process may give a file away; for others it is their own.
  [[maybe_unused]] const int given = ::fchown(file.Get(), old.st_uid, old.st_gid);
  return ::fchmod(file.Get(), old.st_mode & kPermissions) == 0 ? 0 : errno;
}

int WriteAll(const FileHandle& file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t put = ::write(file.Get(), content.data(), content.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return put < 0 ? errno : EIO;
    content.remove_prefix(static_cast<std::size_t>(put));
  }
  return 0;
}

int WriteTemporary(const FileHandle& folder, const std::string& temporary, const std::string& name,
                   std::string_view content) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  FileHandle file(::openat(folder.Get(), temporary.c_str(), kFlags, kCreationMode));
  if (!file.IsOpen()) return errno;
  if (const int error = TakeRights(folder, name, file); error != 0) return error;
  if (const int error = WriteAll(file, content); error != 0) return error;
  if (::fsync(file.Get()) != 0) return errno;
  return file.Close() ? 0 : errno;
}

int Replace(std::filesystem::path path, std::string_view content) {
  if (path.native().find('\0') != std::string::npos) return EINVAL;
  if (const int error = FollowLinks(path); error != 0) return error;
  const std::string name = path.filename().native();
  const std::string temporary = name + ".tmp";
  if (name.empty()) return EISDIR;
  FileHandle folder;
  if (const int error = OpenFolder(path.parent_path(), folder); error != 0) return error;
  // One that a killed writer left behind.
  if (::unlinkat(folder.Get(), temporary.c_str(), 0) != 0 && errno != ENOENT) return errno;
  int error = WriteTemporary(folder, temporary, name, content);
  if (error == 0 && ::renameat(folder.Get(), temporary.c_str(), folder.Get(), name.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    ::unlinkat(folder.Get(), temporary.c_str(), 0);
    return error;
  }
  return ::fsync(folder.Get()) == 0 ? 0 : errno;
}

}  // namespace

int ReplaceContent(const String& path, std::string_view content) noexcept {
  int error = ENOMEM;
  if (!Memory::Try([&] { error = Replace(Text::ToUtf8(path), content); })) return ENOMEM;
  return error;
}

}  // namespace kestrav::Io
