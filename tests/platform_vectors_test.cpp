// Runs recorded answers of an independent implementation of the calls against the stand-in.
//
// Rows of a scenario build on one another. A row whose `skip` tells why it says nothing here is
// counted alone.
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
#include <string>

#include "platform/native.h"
#include "platform/platform.h"
#include "tests/platform_folder.h"

namespace {

using Json = nlohmann::json;

constexpr DWORD kUntouched = 777;

constexpr platform::StringResource kStrings[] = {
    {1, "Ok"},
    {3, ""},
    {8, "No setup node"},
    {1024, "Cannot undo checkin because no old state is known"}};
constexpr HINSTANCE__ kModule = {kStrings, std::size(kStrings)};

UUID ParseUuid(const std::string& text) {
  const auto number = [&](std::size_t at, std::size_t digits) {
    return std::stoul(text.substr(at, digits), nullptr, 16);
  };
  UUID uuid{static_cast<std::uint32_t>(number(0, 8)),
            static_cast<std::uint16_t>(number(9, 4)),
            static_cast<std::uint16_t>(number(14, 4)),
            {}};
  for (std::size_t i = 0; i < 8; ++i)
    uuid.Data4[i] = static_cast<std::uint8_t>(number(19 + 2 * i + (i < 2 ? 0 : 1), 2));
  return uuid;
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
      return {std::string(std::istreambuf_iterator<char>(file), {})};
    }
    if (api == "settime") {
      const auto ticks = std::stoull(Text(in, "writeTimeHex"), nullptr, 16);
      const auto since1970 = static_cast<std::int64_t>(ticks) - 116444736000000000;
      const timespec times[2] = {{0, UTIME_OMIT},
                                 {since1970 / 10000000, since1970 % 10000000 * 100}};
      return {utimensat(AT_FDCWD, Native(in["name"]).c_str(), times, 0) == 0};
    }
    if (api == "compareTimes") {
      const auto timeOf = [&](const char* key) {
        return std::filesystem::last_write_time(Native(in[key]));
      };
      return {nullptr, {{"writeEqual", timeOf("a") == timeOf("b")}}};
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
      std::sort(names.begin(), names.end());
      answer.out["sorted"] = names;
    }
    EXPECT_TRUE(FindClose(search));
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
    return {std::fclose(std::exchange(file, nullptr))};
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
    if (ret == 0) return {0};
    const std::string path = buffer;
    const std::size_t cut = path.rfind('\\') + 1;
    const bool exists = GetFileAttributesA(buffer) != INVALID_FILE_ATTRIBUTES;
    return {ret, {{"folder", path.substr(0, cut)}, {"name", path.substr(cut)}, {"exists", exists}}};
  }

  Answer Load(const std::string&, const Json& in) {
    char buffer[64] = "untouched";
    const int ret = LoadStringA(&kModule, in["id"], buffer, in["size"]);
    return {ret, {{"text", buffer}}};
  }

  Answer Compare(const std::string&, const Json& in) {
    UUID a = ParseUuid(Text(in, "a"));
    UUID b = ParseUuid(Text(in, "b"));
    RPC_CSTR text = nullptr;
    EXPECT_EQ(UuidToStringA(&a, &text), 0);
    EXPECT_EQ(reinterpret_cast<char*>(text), Text(in, "a"));
    RpcStringFreeA(&text);
    RPC_STATUS status = -1;
    const int ret = UuidCompare(&a, &b, &status);
    return {ret, {{"status", status}}};
  }

  Answer Folder(const std::string&, const Json& in) {
    const BOOL ret = SetCurrentDirectoryA(Text(in, "name").c_str());
    char buffer[MAX_PATH] = "";
    GetCurrentDirectoryA(MAX_PATH, buffer);
    return {ret, {{"currentDirectory", buffer}}};
  }

  Answer Entry(const std::string& api, const Json& in) {
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
    return answer;
  }

  Answer Run(const std::string& api, const Json& in) {
    using Group = Answer (Vectors::*)(const std::string&, const Json&);
    // By what the name starts with.
    constexpr std::pair<const char*, Group> kGroups[] = {{"GetFullPathNameA", &Vectors::FullPath},
                                                         {"PathRelative", &Vectors::Relative},
                                                         {"_splitpath", &Vectors::Split},
                                                         {"SetCurrentDir", &Vectors::Folder},
                                                         {"CreateFileA", &Vectors::Create},
                                                         {"GetTemp", &Vectors::Temporary},
                                                         {"LoadStringA", &Vectors::Load},
                                                         {"UuidCompare", &Vectors::Compare},
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
    const bool helper = row.value("helper", false);
    const Answer answer = helper ? Helper(api, row["in"]) : Run(api, row["in"]);
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
};

TEST_F(Vectors, EveryRowThatAppliesHolds) {
  std::ifstream file(TEST_DATA "/platform_vectors.json");
  const Json rows = Json::parse(file);
  int ran = 0;
  int skipped = 0;
  std::string scenario;
  for (const Json& row : rows) {
    if (row["scenario"] != scenario) {
      scenario = row["scenario"];
      StartScenario();
    }
    const bool skip = row.contains("skip");
    ++(skip ? skipped : ran);
    if (!skip) Check(row);
  }
  std::cout << "rows run: " << ran << ", skipped: " << skipped << '\n';
  EXPECT_GE(ran, 630);
}

}  // namespace
