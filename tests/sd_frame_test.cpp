// The library's outer face: factory, enumeration, the order of virtual slots that the host relies
// on, and the built module itself.
#include <array>
#include <cstdio>
#include <cstring>

#include "common/qzassert.h"
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

// --- Slots ---

// A pointer to a virtual member function as the compilers of this platform lay it out: the place in
// the table, in bytes, plus 1; and an adjustment, which is 0 here.
using MemberPointer = std::array<std::intptr_t, 2>;

// The place of a virtual operation in its class's table, from 1.
template <class Function>
std::intptr_t SlotOf(Function operation) {
  static_assert(sizeof operation == sizeof(MemberPointer));
  MemberPointer raw;
  std::memcpy(&raw, &operation, sizeof raw);
  return (raw[0] - 1) / static_cast<std::intptr_t>(sizeof(void*)) + 1;
}

template <class... Functions>
void ExpectInOrder(std::intptr_t first, Functions... operations) {
  for (const std::intptr_t slot : {SlotOf(operations)...})
    EXPECT_EQ(first++, slot);
}

// One operation of an overloaded name.
template <class Result, class Class, class... Arguments>
auto Overload(Result (Class::*operation)(Arguments...)) {
  return operation;
}
template <class... Arguments>
constexpr auto kRead = static_cast<bool (DIOFile::*)(Arguments...)>(&DIOFile::Read);
template <class... Arguments>
constexpr auto kWrite = static_cast<bool (DIOFile::*)(Arguments...)>(&DIOFile::Write);
template <class Number>
constexpr auto kSeek =
    static_cast<bool (DIOFile::*)(Number, DIOFile::DIOSeekMode)>(&DIOFile::SetPosition);
template <class Name>
constexpr auto kProbe =
    static_cast<bool (SDSetupInterface::*)(Name) const>(&SDSetupInterface::ProbeQualityClass);

TEST(Slots, OfTheFrameKeepTheirOrder) {
  using Base = PGIBaseInterface;
  using Descriptor = const PGIInterfaceDescriptor*;
  ExpectInOrder(1, &Base::SetManagerInterface, &Base::GetVersionInfo, &Base::GetFirstInterface,
                &Base::GetNextInterface,
                Overload<void*, Base, const _GUID*, const _GUID*>(&Base::CreateInterface),
                Overload<void*, Base, Descriptor>(&Base::CreateInterface),
                Overload<void, Base, const _GUID*, void*>(&Base::ReleaseInterface),
                Overload<void, Base, Descriptor, void*>(&Base::ReleaseInterface),
                &Base::RequestRemoval);
}

TEST(Slots, OfTheNodesKeepTheirOrder) {
  using Node = HDBAccessBaseInterface;
  ExpectInOrder(1, &Node::Init, &Node::Copy, &Node::Load, &Node::Save, &Node::DoUndo,
                &Node::DiscardUndoInfo, &Node::GatherDeleteInfo, &Node::GetLastError, &Node::Move,
                &Node::Rename, &Node::ParentHasBeenRenamed, &Node::GetRefType);
  using Access = SDAccessInterface;
  using Error = Access::SDError;
  ExpectInOrder(13, &Access::GetTargetPlatform, &Access::EnumerateSampleFormats,
                &Access::GetSetupInterface, &Access::ImportSample, &Access::RemoveSample,
                &Access::ChangeSampleFormat, &Access::GetRawData, &Access::GetEncodedData,
                &Access::GetDecodedData, &Access::GetSampleInformation,
                &Access::GetOriginalSampleInformation, &Access::GetQualityClasses,
                &Access::GetSelQualityClass, &Access::SetSelQualityClass,
                Overload<Error, Access, const qz::string&>(&Access::CheckIn),
                Overload<Error, Access>(&Access::CheckIn), &Access::CheckOut, &Access::UndoCheckIn,
                &Access::UndoCheckOut, &Access::RedoCheckOut, &Access::IsCheckedOut,
                &Access::CanUndoCheckIn, &SDTarvaneAccessInterface::GetExtraData);
  using Setup = SDSetupInterface;
  using Name = const qz::string&;
  ExpectInOrder(
      13, &Setup::SetSampleFolder, &Setup::GetSampleFolder, &Setup::GetTargetPlatform,
      &Setup::EnumerateSampleFormats, &Setup::EnumerateQualityClasses, &Setup::GetNumQualityClasses,
      &Setup::GetQualityClassLevel, &Setup::GetQualityClassName,
      &Setup::GetQualityClassNameFromLevel,
      Overload<Setup::SDError, Setup, Name, qz::uchar, qz::ushort>(&Setup::AddQualityClass),
      Overload<Setup::SDError, Setup, Name, qz::uchar>(&Setup::AddQualityClass),
      &Setup::RemoveQualityClass, kProbe<qz::uchar>, kProbe<Name>, &Setup::AddRef,
      &Setup::RemoveRef);
}

TEST(Slots, OfTheStreamKeepTheirOrder) {
  using File = DIOFile;
  using qz::int64, qz::slong, qz::uchar, qz::uint64, qz::ulong, qz::ushort;
  ExpectInOrder(1, &File::SetEndian, &File::GetAccessMode, &File::GetFileTime,
                Overload<bool, File, uint64&>(&File::GetFileSize),
                Overload<bool, File, ulong&>(&File::GetFileSize),
                Overload<bool, File, uint64&>(&File::GetPosition),
                Overload<bool, File, ulong&>(&File::GetPosition), kSeek<int64>, kSeek<uint64>,
                kSeek<slong>, kSeek<ulong>);
  ExpectInOrder(12, kRead<void*, ulong, ulong>, kRead<char&>, kRead<uchar&>, kRead<short&>,
                kRead<ushort&>, kRead<slong&>, kRead<ulong&>, kRead<int64&>, kRead<uint64&>,
                kRead<float&>, kRead<double&>, kRead<File::v32&>, &File::ReadString);
  ExpectInOrder(25, kWrite<const void*, ulong, ulong>, kWrite<char>, kWrite<uchar>, kWrite<short>,
                kWrite<ushort>, kWrite<slong>, kWrite<ulong>, kWrite<int64>, kWrite<uint64>,
                kWrite<float>, kWrite<double>, kWrite<const File::v32&>, &File::WriteString,
                &File::WriteStringZ, Overload<bool, File, DIOFile*>(&File::Insert),
                Overload<bool, File, DIOFile*, uint64>(&File::Insert), &File::SetLabelMode,
                &File::SetLabel, &File::GetLabel, &File::WriteLabel);
}

// --- Factory ---

class Frame : public SampleDataTest {
 protected:
  PGISampleDataBaseInterface base_{&platform::thisModule};
};

TEST_F(Frame, EnumeratesTheTwoKindsAgainAndAgain) {
  EXPECT_EQ(nullptr, base_.GetNextInterface()) << "nothing is under the cursor before the start";
  for (int round = 0; round < 2; ++round) {
    const PGIInterfaceInfo* kind = base_.GetFirstInterface();
    for (const auto& [name, guid] : {std::pair("SampleData", hdbTypeSampleData),
                                     std::pair("SampleDataSetup", hdbTypeSampleDataSetup)}) {
      ASSERT_NE(nullptr, kind);
      EXPECT_STREQ(name, kind->name);
      EXPECT_EQ(0, std::memcmp(&guid, &kind->guid, sizeof guid));
      EXPECT_EQ(0u, kind->numSubTypes);
      kind = base_.GetNextInterface();
    }
    EXPECT_EQ(nullptr, kind);
    EXPECT_EQ(nullptr, base_.GetNextInterface());
  }
}

TEST_F(Frame, RefusesOtherSubTypesAndUnknownKinds) {
  EXPECT_EQ(nullptr, base_.CreateInterface(&hdbTypeSampleData, nullptr));
  EXPECT_EQ(nullptr, base_.CreateInterface(&hdbTypeSampleDataSetup, &dbSubTypeAGB));
  EXPECT_EQ(nullptr, base_.CreateInterface(&hdbTypeBaseNode, &dbSubTypeTarvane));
  _GUID almost = dbSubTypeTarvane;
  almost.Data4[7] ^= 1;
  EXPECT_EQ(nullptr, base_.CreateInterface(&hdbTypeSampleData, &almost));
  EXPECT_TRUE(base_.RequestRemoval());
}

TEST_F(Frame, MayGoOnlyWhenEveryObjectIsBack) {
  PGIInterfaceDescriptor descriptor{};
  std::strcpy(descriptor.name, "SampleDataSetup");  // the GUID picks the kind
  descriptor.guid = hdbTypeSampleData;
  descriptor.subTypeValid = true;
  descriptor.subType = dbSubTypeTarvane;
  void* sample = base_.CreateInterface(&descriptor);
  void* setup = base_.CreateInterface(&hdbTypeSampleDataSetup, &dbSubTypeTarvane);
  EXPECT_FALSE(base_.RequestRemoval());
  base_.ReleaseInterface(&hdbTypeBaseNode, sample);  // no kind of ours: the object lives on
  EXPECT_EQ(ID_TYPE_SAMPLE, static_cast<HDBAccessBaseInterface*>(sample)->GetRefType());
  descriptor.subTypeValid = false;  // it plays no part in giving back
  base_.ReleaseInterface(&descriptor, sample);
  EXPECT_FALSE(base_.RequestRemoval());
  base_.ReleaseInterface(&hdbTypeSampleDataSetup, setup);
  EXPECT_TRUE(base_.RequestRemoval());
}

std::string assertion;  // the last failed one

TEST_F(Frame, StopsBrokenContracts) {
  const qz::AssertHandler former =
      qz::SetAssertHandler([](const char* text, const char*, int) { assertion = text; });
  base_.SetManagerInterface(nullptr);
  EXPECT_EQ("manager!=NULL", assertion);
  EXPECT_EQ(nullptr, base_.CreateInterface(nullptr, &dbSubTypeTarvane));
  EXPECT_EQ("guid!=NULL", assertion);
  EXPECT_EQ(nullptr, base_.CreateInterface(nullptr));
  EXPECT_EQ("interfaceDesc!=NULL", assertion);
  base_.ReleaseInterface(&hdbTypeSampleData, nullptr);
  EXPECT_EQ("interfacePtr!=NULL", assertion);
  int object = 0;
  base_.ReleaseInterface(static_cast<_GUID*>(nullptr), &object);
  EXPECT_EQ("guid!=NULL", assertion);
  base_.ReleaseInterface(static_cast<PGIInterfaceDescriptor*>(nullptr), &object);
  EXPECT_EQ("interfaceDesc!=NULL", assertion);
  qz::SetAssertHandler(former);
}

TEST_F(Frame, ComesAndGoesWithTheModule) {
  EXPECT_EQ(nullptr, RequestBaseInterface());
  ASSERT_TRUE(DllMain(&platform::thisModule, DLL_PROCESS_ATTACH, nullptr));
  PGIBaseInterface* base = RequestBaseInterface();
  ASSERT_NE(nullptr, base);
  EXPECT_TRUE(DllMain(&platform::thisModule, 2, nullptr));  // threads come and go
  EXPECT_EQ(base, RequestBaseInterface());
  EXPECT_TRUE(DllMain(&platform::thisModule, DLL_PROCESS_DETACH, nullptr));
  EXPECT_EQ(nullptr, RequestBaseInterface());
}

// The host's tests work through the built module; only what else it shows is looked at here.
TEST(Module, ExportsOneSymbol) {
  std::FILE* list = popen("nm -D --defined-only '" SAMPLEDATA_SO "'", "r");
  ASSERT_NE(nullptr, list);
  std::vector<std::string> symbols;
  char line[512];
  while (std::fgets(line, sizeof line, list) != nullptr) {
    const std::string text(line, std::strcspn(line, "\n"));
    symbols.push_back(text.substr(text.rfind(' ') + 1));
  }
  EXPECT_EQ(0, pclose(list));
  EXPECT_THAT(symbols, ElementsAre("RequestBaseInterface"));
}

}  // namespace
}  // namespace sdtest
