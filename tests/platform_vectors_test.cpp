// Runs recorded answers of an independent implementation of the calls against the stand-in.
//
// Rows of a scenario build on one another. Rows that hold for that implementation or its code page
// alone, and calls that the layer does not have, are skipped and counted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "platform/native.h"
#include "platform/platform.h"
#include "tests/platform_folder.h"

namespace {

using Json = nlohmann::json;
using Rows = std::vector<Json>;

constexpr DWORD kUntouched = 777;

constexpr platform::StringResource kStrings[] = {
    {1, "Ok"},
    {3, ""},
    {8, "No setup node"},
    {1024, "Cannot undo checkin because no old state is known"}};
constexpr HINSTANCE__ kModule = {kStrings, std::size(kStrings)};

UUID ParseUuid(const std::string& text) {
  UUID uuid{};
  unsigned d[11];
  std::sscanf(text.c_str(), "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &d[0], &d[1], &d[2], &d[3],
              &d[4], &d[5], &d[6], &d[7], &d[8], &d[9], &d[10]);
  uuid.Data1 = d[0];
  uuid.Data2 = static_cast<std::uint16_t>(d[1]);
  uuid.Data3 = static_cast<std::uint16_t>(d[2]);
  for (int i = 0; i < 8; ++i)
    uuid.Data4[i] = static_cast<std::uint8_t>(d[3 + i]);
  return uuid;
}

std::string TextOf(const UUID& uuid) {
  RPC_CSTR text = nullptr;
  UuidToStringA(&uuid, &text);
  std::string result = reinterpret_cast<char*>(text);
  RpcStringFreeA(&text);
  return result;
}

// What one call gave: `ret` and `out` in the form of the rows.
struct Answer {
  Json ret;
  Json out = Json::object();
};

class Vectors : public testing::Test {
 protected:
  void SetUp() override {
    home_ = std::filesystem::current_path();
    platform::MountDrive('C', root_);
  }

  void TearDown() override {
    CloseAll();
    std::filesystem::current_path(home_);
    platform::MountDrive('C', "/");
  }

  void CloseAll() {
    for (const auto& [name, handle] : handles_)
      CloseHandle(handle);
    for (const auto& [name, file] : files_) {
      if (file != nullptr) std::fclose(file);
    }
    handles_.clear();
    files_.clear();
  }

  void StartScenario() {
    CloseAll();
    std::filesystem::current_path(home_);
    std::filesystem::remove_all(root_ + "/Sound");
    std::filesystem::create_directory(root_ + "/Sound");
    SetCurrentDirectoryA("C:\\Sound");
  }

  static std::string Native(const Json& path) {
    std::string native;
    EXPECT_TRUE(platform::ToNative(path.get<std::string>(), native)) << path;
    return native;
  }

  static std::string Text(const Json& in, const char* key) { return in[key].get<std::string>(); }

  HANDLE Handle(const Json& in) {
    const auto found = handles_.find(Text(in, "handle"));
    return found != handles_.end() ? found->second : INVALID_HANDLE_VALUE;
  }

  Answer Helper(const std::string& api, const Json& in) {
    if (api == "mkdir") return {CreateDirectoryA(Text(in, "name").c_str(), nullptr) != 0};
    if (api == "contents") {
      std::ifstream file(Native(in["name"]), std::ios::binary);
      std::stringstream text;
      text << file.rdbuf();
      return {text.str()};
    }
    if (api == "settime") {
      const auto ticks = std::stoull(Text(in, "writeTimeHex"), nullptr, 16);
      const auto since1970 = static_cast<std::int64_t>(ticks) - 116444736000000000;
      const timespec times[2] = {{0, UTIME_OMIT},
                                 {since1970 / 10000000, since1970 % 10000000 * 100}};
      return {utimensat(AT_FDCWD, Native(in["name"]).c_str(), times, 0) == 0};
    }
    if (api == "compareTimes") {
      struct stat a;
      struct stat b;
      stat(Native(in["a"]).c_str(), &a);
      stat(Native(in["b"]).c_str(), &b);
      const bool equal = a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
                         a.st_mtim.tv_nsec / 100 == b.st_mtim.tv_nsec / 100;
      return {nullptr, {{"writeEqual", equal}}};
    }
    if (api == "SetEndOfFile") {
      LONG high = 0;
      const DWORD low = SetFilePointer(Handle(in), 0, &high, FILE_CURRENT);
      return {truncate((root_ + "/Sound/big.bin").c_str(), off_t{high} << 32 | low) == 0 ? 1 : 0};
    }
    // mkfile
    const std::string text = Text(in, "text");
    const HANDLE file = CreateFileA(Text(in, "name").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    in["attributes"], nullptr);
    DWORD done = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &done, nullptr);
    return {CloseHandle(file) != 0};
  }

  static std::vector<std::string> Walk(HANDLE search, WIN32_FIND_DATAA data) {
    std::vector<std::string> names;
    do {
      const bool folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      names.push_back(std::string(data.cFileName) + (folder ? "\\" : ""));
    } while (FindNextFileA(search, &data));
    return names;
  }

  Answer Search(const std::string& api, const Json& in) {
    WIN32_FIND_DATAA data{};
    const HANDLE search = FindFirstFileA(Text(in, "mask").c_str(), &data);
    if (search == INVALID_HANDLE_VALUE) return {"INVALID"};
    Answer answer{"handle"};
    if (api == "FindFirstFileA.record") {
      answer.out = {{"cFileName", data.cFileName},
                    {"cAlternateFileName", data.cAlternateFileName},
                    {"dwFileAttributes", data.dwFileAttributes},
                    {"nFileSizeHigh", data.nFileSizeHigh},
                    {"nFileSizeLow", data.nFileSizeLow}};
    } else {
      auto names = Walk(search, data);
      answer.out["endError"] = GetLastError();
      if (api == "FindFirstFileA.firstTwo") {
        answer.out = {{"first", names[0].substr(0, names[0].size() - 1)},
                      {"second", names[1].substr(0, names[1].size() - 1)}};
      } else {
        std::sort(names.begin(), names.end());
        answer.out["sorted"] = names;
      }
    }
    EXPECT_TRUE(FindClose(search));
    return answer;
  }

  Answer NextAfter(const std::string&, const Json& in) {
    WIN32_FIND_DATAA data{};
    const HANDLE search = FindFirstFileA("C:\\Sound\\game.db", &data);
    if (Text(in, "after") == "the end") FindNextFileA(search, &data);
    Answer answer{FindNextFileA(search, &data)};
    const DWORD error = GetLastError();
    FindClose(search);
    SetLastError(error);
    answer.out["recordChanged"] = std::string(data.cFileName) != "game.db";
    return answer;
  }

  Answer Create(const std::string&, const Json& in) {
    const std::map<std::string, DWORD> dispositions = {{"CREATE_NEW", CREATE_NEW},
                                                       {"CREATE_ALWAYS", CREATE_ALWAYS},
                                                       {"OPEN_EXISTING", OPEN_EXISTING},
                                                       {"OPEN_ALWAYS", OPEN_ALWAYS},
                                                       {"TRUNCATE_EXISTING", TRUNCATE_EXISTING}};
    const std::string mode = Text(in, "access");
    const DWORD access = (mode.find('r') != std::string::npos ? GENERIC_READ : 0) |
                         (mode.find('w') != std::string::npos ? GENERIC_WRITE : 0);
    const HANDLE handle =
        CreateFileA(Text(in, "name").c_str(), access, in["share"], nullptr,
                    dispositions.at(Text(in, "disposition")), FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return {"INVALID"};
    handles_[Text(in, "handle")] = handle;
    return {"handle"};
  }

  Answer Stdio(const std::string& api, const Json& in) {
    std::FILE*& file = files_[Text(in, "handle")];
    if (api == "fopen") {
      file = platform::fopen(Text(in, "name").c_str(), Text(in, "mode").c_str());
      return {file != nullptr ? "file" : "NULL"};
    }
    if (api == "fputs") return {std::fputs(Text(in, "text").c_str(), file) >= 0};
    std::FILE* closing = std::exchange(file, nullptr);
    return {std::fclose(closing)};
  }

  Answer Transfer(const std::string& api, const Json& in) {
    DWORD done = kUntouched;
    if (api == "WriteFile") {
      const std::string text = Text(in, "text");
      const BOOL ret =
          WriteFile(Handle(in), text.data(), static_cast<DWORD>(text.size()), &done, nullptr);
      return {ret, {{"done", done}}};
    }
    std::string text(in["count"].get<DWORD>(), '?');
    const BOOL ret =
        ReadFile(Handle(in), text.data(), static_cast<DWORD>(text.size()), &done, nullptr);
    return {ret, {{"done", done}, {"text", text.substr(0, done)}}};
  }

  Answer Position(const std::string& api, const Json& in) {
    if (api == "GetFileSize") {
      DWORD high = kUntouched;
      const bool wanted = in["highPointer"];
      const DWORD low = GetFileSize(Handle(in), wanted ? &high : nullptr);
      return {low, wanted ? Json{{"high", high}} : Json::object()};
    }
    const bool wide = !in["distanceHigh"].is_null();
    LONG high = wide ? in["distanceHigh"].get<LONG>() : 0;
    const DWORD low =
        SetFilePointer(Handle(in), in["distanceLow"], wide ? &high : nullptr, in["origin"]);
    return {low, wide ? Json{{"high", high}} : Json::object()};
  }

  Answer FullPath(const std::string&, const Json& in) {
    char buffer[1024];
    buffer[0] = '\1';
    LPSTR part = nullptr;
    const DWORD ret = GetFullPathNameA(Text(in, "name").c_str(), in["size"], buffer, &part);
    if (buffer[0] == '\1') return {ret, {{"bufferTouched", false}}};
    return {ret,
            {{"path", buffer}, {"filePartOffset", part != nullptr ? Json(part - buffer) : Json()}}};
  }

  Answer Relative(const std::string&, const Json& in) {
    char buffer[MAX_PATH] = "untouched";
    const auto attributes = [&](const char* key) -> DWORD {
      return in[key].get<bool>() ? FILE_ATTRIBUTE_DIRECTORY : 0;
    };
    const BOOL ret = PathRelativePathToA(buffer, Text(in, "from").c_str(), attributes("fromIsDir"),
                                         Text(in, "to").c_str(), attributes("toIsDir"));
    return {ret, {{"path", buffer}}};
  }

  Answer Split(const std::string&, const Json& in) {
    char drive[_MAX_DRIVE];
    char dir[_MAX_DIR];
    char name[_MAX_FNAME];
    char ext[_MAX_EXT];
    _splitpath(Text(in, "path").c_str(), drive, dir, name, ext);
    return {nullptr, {{"drive", drive}, {"dir", dir}, {"fname", name}, {"ext", ext}}};
  }

  Answer Temporary(const std::string& api, const Json& in) {
    char buffer[MAX_PATH] = "";
    if (api == "GetTempPathA") {
      if (in.contains("TMP")) setenv("TMP", Text(in, "TMP").c_str(), 1);
      const DWORD ret = GetTempPathA(in["size"], buffer);
      unsetenv("TMP");
      const std::string path = buffer;
      return {in.contains("TMP") ? Json(ret) : Json("length of path"),
              {{"path", path},
               {"retIsLength", ret == path.size()},
               {"endsInBackslash", path.ends_with('\\')},
               {"absolute", path.find(":\\") == 1}}};
    }
    const UINT ret = GetTempFileNameA(Text(in, "path").c_str(), Text(in, "prefix").c_str(),
                                      in["unique"], buffer);
    const std::string path = buffer;
    const std::size_t cut = path.rfind('\\') + 1;
    if (ret != 0) {
      const bool exists = GetFileAttributesA(buffer) != INVALID_FILE_ATTRIBUTES;
      return {ret,
              {{"folder", path.substr(0, cut)},
               {"name", path.substr(cut)},
               {"exists", exists},
               {"hexCase", "either"}}};
    }
    return {ret};
  }

  Answer Convert(const std::string& api, const Json& in) {
    if (api == "LoadStringA") {
      char buffer[64] = "untouched";
      const int ret = LoadStringA(&kModule, in["id"], buffer, in["size"]);
      return {ret, {{"text", buffer}}};
    }
    if (api == "MultiByteToWideChar") {
      const std::string bytes = Text(in, "bytes");
      WCHAR units[64] = {};
      const int ret = MultiByteToWideChar(CP_ACP, 0, bytes.c_str(), in["len"], units, 64);
      return {ret, {{"units", std::vector<unsigned>(units, units + ret)}}};
    }
    const std::vector<unsigned> units = in["units"];
    std::u16string text(units.begin(), units.end());
    char bytes[64] = "untouched";
    const int ret = WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, bytes, 64, nullptr, nullptr);
    return {ret, {{"bytes", bytes}}};
  }

  Answer Uuid(const std::string& api, const Json& in) {
    UUID a{};
    if (api == "UuidCompare") {
      a = ParseUuid(Text(in, "a"));
      UUID b = ParseUuid(Text(in, "b"));
      RPC_STATUS status = -1;
      const int ret = UuidCompare(&a, &b, &status);
      return {ret, {{"status", status}}};
    }
    if (api == "UuidToStringA") {
      const std::string hex = Text(in, "memoryHex");
      unsigned char bytes[sizeof a];
      for (std::size_t i = 0; i < sizeof a; ++i) {
        bytes[i] = static_cast<unsigned char>(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
      }
      std::memcpy(&a, bytes, sizeof a);
      return {0, {{"text", TextOf(a)}}};
    }
    const RPC_STATUS ret = UuidCreate(&a);
    const std::string text = TextOf(a);
    Json dashes = Json::array();
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '-') dashes.push_back(i);
    }
    return {ret,
            {{"length", text.size()},
             {"versionDigit", text.substr(14, 1)},
             {"variantBits10", (a.Data4[0] & 0xC0) == 0x80},
             {"lowerCase", text.find_first_of("ABCDEF") == std::string::npos},
             {"dashesAt", dashes}}};
  }

  Answer Folder(const std::string&, const Json& in) {
    const BOOL ret = SetCurrentDirectoryA(Text(in, "name").c_str());
    char buffer[MAX_PATH] = "";
    GetCurrentDirectoryA(MAX_PATH, buffer);
    return {ret, {{"currentDirectory", buffer}}};
  }

  Answer Entry(const std::string& api, const Json& in) {
    WIN32_FIND_DATAA data;
    const HANDLE search = in.contains("openSearch")
                              ? FindFirstFileA(Text(in, "openSearch").c_str(), &data)
                              : INVALID_HANDLE_VALUE;
    if (api == "FindClose") return {FindClose(INVALID_HANDLE_VALUE)};
    if (api == "CloseHandle") return {CloseHandle(Handle(in))};
    const std::string name = in.contains("name") ? Text(in, "name") : Text(in, "from");
    Answer answer;
    if (api == "GetFileAttributesA") answer.ret = GetFileAttributesA(name.c_str());
    if (api == "SetFileAttributesA") {
      answer.ret = SetFileAttributesA(name.c_str(), in["attributes"]);
    }
    if (api == "DeleteFileA") answer.ret = DeleteFileA(name.c_str());
    if (api == "CreateDirectoryA") answer.ret = CreateDirectoryA(name.c_str(), nullptr);
    if (api == "RemoveDirectoryA") answer.ret = RemoveDirectoryA(name.c_str());
    if (api == "MoveFileA") answer.ret = MoveFileA(name.c_str(), Text(in, "to").c_str());
    if (api == "CopyFileA") {
      answer.ret = CopyFileA(name.c_str(), Text(in, "to").c_str(), in["failIfExists"].get<bool>());
    }
    if (search != INVALID_HANDLE_VALUE) FindClose(search);
    return answer;
  }

  Answer Child(const std::string&, const Json& in) {
    std::string line = Text(in, "commandLine");
    const std::string self = "\"<this program>\" child ";
    if (line.starts_with(self)) line = "sh -c \"exit " + line.substr(self.size()) + '"';
    STARTUPINFOA startup{};
    PROCESS_INFORMATION child{};
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &child)) {
      return {0};
    }
    DWORD code = kUntouched;
    EXPECT_EQ(WaitForSingleObject(child.hProcess, 10000), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(child.hProcess, &code));
    CloseHandle(child.hProcess);
    return {1, {{"exitCode", code}}};
  }

  Answer PipeEnd(const std::string& end, HANDLE handle) {
    if (handle == INVALID_HANDLE_VALUE) return {"INVALID"};
    handles_[end] = handle;
    return {"handle"};
  }

  Answer Pipe(const std::string& api, const Json& in) {
    if (api == "CreateNamedPipeA") {
      return PipeEnd("read", CreateNamedPipeA(Text(in, "name").c_str(), in["openMode"], 0,
                                              in["maxInstances"], 0, 0, 0, nullptr));
    }
    if (api == "CreateFileA") {
      return PipeEnd("write", CreateFileA(Text(in, "name").c_str(), GENERIC_WRITE, 0, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    }
    const HANDLE pipe = handles_["read"];
    HANDLE& event = handles_["event"];
    if (event == nullptr) event = pipeRead_.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    DWORD size = 0;
    if (api == "PeekNamedPipe") {
      const BOOL ret = PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr);
      return {ret, {{"available", size}}};
    }
    if (api == "GetOverlappedResult") return {GetOverlappedResult(pipe, &pipeRead_, &size, TRUE)};
    if (api == "CancelIo") {
      const BOOL ret = CancelIo(pipe);
      return {ret, {{"eventSetWithin100ms", WaitForSingleObject(event, 100) == WAIT_OBJECT_0}}};
    }
    // ReadFile
    if (Text(in, "handle") == "pipe, writer closed") {
      CancelIo(pipe);
      CloseHandle(handles_["write"]);
      handles_.erase("write");
    }
    const BOOL ret = ReadFile(pipe, pipeBytes_, in["count"], &size, &pipeRead_);
    const DWORD error = GetLastError();
    Answer answer{ret, {{"eventSet", WaitForSingleObject(event, 0) == WAIT_OBJECT_0}}};
    SetLastError(error);
    return answer;
  }

  Answer Run(const std::string& api, const Json& in) {
    using Group = Answer (Vectors::*)(const std::string&, const Json&);
    // By what the name starts with.
    constexpr std::pair<const char*, Group> kGroups[] = {{"GetFullPathNameA", &Vectors::FullPath},
                                                         {"PathRelative", &Vectors::Relative},
                                                         {"_splitpath", &Vectors::Split},
                                                         {"SetCurrentDir", &Vectors::Folder},
                                                         {"FindNextFileA", &Vectors::NextAfter},
                                                         {"CreateProcessA", &Vectors::Child},
                                                         {"CreateFileA", &Vectors::Create},
                                                         {"GetTemp", &Vectors::Temporary},
                                                         {"LoadStringA", &Vectors::Convert},
                                                         {"MultiByte", &Vectors::Convert},
                                                         {"WideChar", &Vectors::Convert},
                                                         {"Uuid", &Vectors::Uuid},
                                                         {"ReadFile", &Vectors::Transfer},
                                                         {"WriteFile", &Vectors::Transfer},
                                                         {"SetFilePointer", &Vectors::Position},
                                                         {"GetFileSize", &Vectors::Position},
                                                         {"f", &Vectors::Stdio},
                                                         {"FindFirstFileA", &Vectors::Search}};
    for (const auto& [start, group] : kGroups) {
      if (api.starts_with(start)) return (this->*group)(api, in);
    }
    return Entry(api, in);
  }

  void Check(const Json& row) {
    constexpr DWORD kSentinel = 12345;
    SetLastError(kSentinel);
    const std::string api = row["api"];
    const bool helper = row.value("helper", false) || api == "fputs";
    const Answer answer = helper && api != "fputs"    ? Helper(api, row["in"])
                          : row["scenario"] == "pipe" ? Pipe(api, row["in"])
                                                      : Run(api, row["in"]);
    const DWORD error = GetLastError();
    EXPECT_EQ(answer.ret, row["ret"]) << row;
    for (const auto& [key, value] : row["out"].items()) {
      EXPECT_EQ(answer.out.value(key, Json()), value) << key << " of " << row;
    }
    if (row.contains("error") && !row.contains("mark")) {
      EXPECT_EQ(error, row["error"].get<DWORD>()) << row;
    }
  }

  const platform_test::TempFolder folder_;
  const std::string& root_ = folder_.path;
  std::filesystem::path home_;
  std::map<std::string, HANDLE> handles_;
  std::map<std::string, std::FILE*> files_;
  OVERLAPPED pipeRead_{};
  char pipeBytes_[16] = {};
};

TEST_F(Vectors, EveryRowThatAppliesHolds) {
  std::ifstream file(TEST_DATA "/platform_vectors.json");
  const Rows rows = Json::parse(file);
  std::map<std::string, int> skipped;
  int ran = 0;
  std::string scenario;
  for (const Json& row : rows) {
    if (row["scenario"] != scenario) {
      scenario = row["scenario"];
      StartScenario();
    }
    // Why the row says nothing about this layer; empty where it does.
    const std::string reason = row.value("skip", "");
    if (reason.empty()) {
      Check(row);
      ++ran;
    } else {
      ++skipped[reason];
    }
  }
  std::cout << "rows run: " << ran << '\n';
  for (const auto& [reason, count] : skipped) {
    std::cout << "rows skipped, " << reason << ": " << count << '\n';
  }
  EXPECT_EQ(ran, 674);
}

}  // namespace
