#include "host/paths.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "diskio/diskio.h"
#include "host/failure.h"
#include "platform/native.h"

namespace samplehost {

namespace {

char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string SystemReason() {
  return std::strerror(errno);
}

}  // namespace

std::string Narrow(const qz::string& text) {
  return text.c_str();
}

std::string FullPath(const std::string& native) {
  if (native.empty()) throw UsageFailure("A path is empty.");
  std::string path, why;
  if (!platform::FromNative(native, path, why)) {
    throw Failure("This name cannot be used: " + why,
                  "Rename the file or folder, or work in another folder.");
  }
  return path;
}

std::string FullPathFrom(const std::string& base, const std::string& native) {
  return FullPath((std::filesystem::path(base) / native).string());
}

std::string NativePath(const std::string& path) {
  std::string native;
  if (!platform::ToNative(path, native)) {
    throw Failure(fmt::format("\"{}\" is on a drive that does not exist.", path));
  }
  return native;
}

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('\\') + 1);
}

std::string NameOf(const std::string& path) {
  return path.substr(path.rfind('\\') + 1);
}

std::string StemOf(const std::string& path) {
  const std::string name = NameOf(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

std::string ExtensionOf(const std::string& path) {
  const std::string name = NameOf(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::string Expand(const std::string& folder, const qz::string& stored) {
  qz::string path = qz::string(folder.c_str()) + stored;
  DIOFile::CleanupPath(path);
  return Narrow(path);
}

std::string EncodedPathOf(const std::string& rawPath) {
  return rawPath.substr(0, rawPath.rfind('.')) + ".esmp";
}

std::string LowerCase(const std::string& text) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(), LowerAscii);
  return lower;
}

bool SameText(const std::string& a, const std::string& b) {
  return LowerCase(a) == LowerCase(b);
}

std::string WhyNoFileName(const std::string& name) {
  if (name.empty()) return "it is empty";
  if (name.find_first_of("\\/:*?\"<>|") != std::string::npos) {
    return "it holds one of the characters \\ / : * ? \" < > |";
  }
  const bool hasControl = std::any_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
  });
  if (hasControl) return "it holds a control character";
  if (name.back() == '.' || name.back() == ' ') return "it ends in a dot or a blank";
  return {};
}

std::optional<std::uint64_t> FileSize(const std::string& path) {
  struct stat status {};
  std::string native;
  if (!platform::ToNative(path, native) || ::stat(native.c_str(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode)) return {};
  return static_cast<std::uint64_t>(status.st_size);
}

void MoveNew(const std::string& nativeFrom, const std::string& nativeTo) {
  if (::renameat2(AT_FDCWD, nativeFrom.c_str(), AT_FDCWD, nativeTo.c_str(), RENAME_NOREPLACE) ==
      0) {
    return;
  }
  // Some file systems cannot rename without replacing; a second name does the same there.
  const bool unsupported = errno == EINVAL || errno == ENOSYS;
  if (unsupported && ::link(nativeFrom.c_str(), nativeTo.c_str()) == 0) {
    ::unlink(nativeFrom.c_str());
    return;
  }
  throw Failure(fmt::format("\"{}\" could not be made: {}.", nativeTo, SystemReason()));
}

PendingFile::PendingFile(const std::string& target, bool overwrite)
    : temporary_(FolderOf(target) + fmt::format("samplehost-{}.part", ::getpid())),
      nativeTemporary_(NativePath(temporary_)),
      nativeTarget_(NativePath(target)),
      overwrite_(overwrite) {
  struct stat status {};
  const std::string folder = std::filesystem::path(nativeTarget_).parent_path().string();
  if (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    throw Failure(fmt::format("There is no folder \"{}\".", folder));
  }
  if (::stat(nativeTarget_.c_str(), &status) != 0) return;
  if (S_ISDIR(status.st_mode)) throw Failure(fmt::format("\"{}\" is a folder.", nativeTarget_));
  if (!overwrite) {
    throw Failure(fmt::format("\"{}\" exists already.", nativeTarget_),
                  "Give another name, or --force to replace it.");
  }
}

PendingFile::~PendingFile() {
  if (!committed_) ::unlink(nativeTemporary_.c_str());
}

void PendingFile::Commit() {
  if (!overwrite_) {
    MoveNew(nativeTemporary_, nativeTarget_);
  } else if (::rename(nativeTemporary_.c_str(), nativeTarget_.c_str()) != 0) {
    throw Failure(fmt::format("\"{}\" could not be replaced: {}.", nativeTarget_, SystemReason()));
  }
  committed_ = true;
}

void WriteWhole(const std::string& native, const void* bytes, std::size_t size) {
  std::FILE* file = std::fopen(native.c_str(), "wb");
  if (file == nullptr) {
    throw Failure(fmt::format("\"{}\" could not be made: {}.", native, SystemReason()));
  }
  const bool written = std::fwrite(bytes, 1, size, file) == size;
  const std::string reason = written ? std::string() : SystemReason();
  if (std::fclose(file) != 0 || !written) {
    throw Failure(
        fmt::format("\"{}\" could not be written: {}.", native, written ? SystemReason() : reason));
  }
}

}  // namespace samplehost
