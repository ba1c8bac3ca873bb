// The library's outer face: factory, enumeration, the order of virtual slots that the host relies
// on, and the built module itself.
#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <cstring>

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

// The operation in a slot, from 1, whatever its name.
template <class Function>
Function InSlot(std::intptr_t slot) {
  const MemberPointer raw = {(slot - 1) * static_cast<std::intptr_t>(sizeof(void*)) + 1, 0};
  Function operation;
  std::memcpy(&operation, &raw, sizeof raw);
  return operation;
}

// Picks one operation of an overloaded name.
template <class Result, class Class, class... Arguments>
auto Overload(Result (Class::*operation)(Arguments...)) {
  return operation;
}

TEST(Slots, FrameAndNodeKeepTheirOrder) {
  using Base = PGIBaseInterface;
  EXPECT_EQ(1, SlotOf(&Base::SetManagerInterface));
  EXPECT_EQ(2, SlotOf(&Base::GetVersionInfo));
  EXPECT_EQ(3, SlotOf(&Base::GetFirstInterface));
  EXPECT_EQ(4, SlotOf(&Base::GetNextInterface));
  EXPECT_EQ(5, SlotOf(Overload<void*, Base, const _GUID*, const _GUID*>(&Base::CreateInterface)));
  EXPECT_EQ(6,
            SlotOf(Overload<void*, Base, const PGIInterfaceDescriptor*>(&Base::CreateInterface)));
  EXPECT_EQ(7, SlotOf(Overload<void, Base, const _GUID*, void*>(&Base::ReleaseInterface)));
  EXPECT_EQ(
      8,
      SlotOf(Overload<void, Base, const PGIInterfaceDescriptor*, void*>(&Base::ReleaseInterface)));
  EXPECT_EQ(9, SlotOf(&Base::RequestRemoval));

  using Node = HDBAccessBaseInterface;
  EXPECT_EQ(1, SlotOf(&Node::Init));
  EXPECT_EQ(2, SlotOf(&Node::Copy));
  EXPECT_EQ(3, SlotOf(&Node::Load));
  EXPECT_EQ(4, SlotOf(&Node::Save));
  EXPECT_EQ(5, SlotOf(&Node::DoUndo));
  EXPECT_EQ(6, SlotOf(&Node::DiscardUndoInfo));
  EXPECT_EQ(7, SlotOf(&Node::GatherDeleteInfo));
  EXPECT_EQ(8, SlotOf(&Node::GetLastError));
  EXPECT_EQ(9, SlotOf(&Node::Move));
  EXPECT_EQ(10, SlotOf(&Node::Rename));
  EXPECT_EQ(11, SlotOf(&Node::ParentHasBeenRenamed));
  EXPECT_EQ(12, SlotOf(&Node::GetRefType));
}

TEST(Slots, SampleNodeKeepsItsOrder) {
  using Node = SDTarvaneAccessInterface;
  EXPECT_EQ(13, SlotOf(&Node::GetTargetPlatform));
  EXPECT_EQ(14, SlotOf(&Node::EnumerateSampleFormats));
  EXPECT_EQ(15, SlotOf(&Node::GetSetupInterface));
  EXPECT_EQ(16, SlotOf(&Node::ImportSample));
  EXPECT_EQ(17, SlotOf(&Node::RemoveSample));
  EXPECT_EQ(18, SlotOf(&Node::ChangeSampleFormat));
  EXPECT_EQ(19, SlotOf(&Node::GetRawData));
  EXPECT_EQ(20, SlotOf(&Node::GetEncodedData));
  EXPECT_EQ(21, SlotOf(&Node::GetDecodedData));
  EXPECT_EQ(22, SlotOf(&Node::GetSampleInformation));
  EXPECT_EQ(23, SlotOf(&Node::GetOriginalSampleInformation));
  EXPECT_EQ(24, SlotOf(&Node::GetQualityClasses));
  EXPECT_EQ(25, SlotOf(&Node::GetSelQualityClass));
  EXPECT_EQ(26, SlotOf(&Node::SetSelQualityClass));
  using Access = SDAccessInterface;
  using Error = Access::SDError;
  EXPECT_EQ(27, SlotOf(Overload<Error, Access, const qz::string&>(&Access::CheckIn)));
  EXPECT_EQ(28, SlotOf(Overload<Error, Access>(&Access::CheckIn)));
  EXPECT_EQ(29, SlotOf(&Node::CheckOut));
  EXPECT_EQ(30, SlotOf(&Node::UndoCheckIn));
  EXPECT_EQ(31, SlotOf(&Node::UndoCheckOut));
  EXPECT_EQ(32, SlotOf(&Node::RedoCheckOut));
  EXPECT_EQ(33, SlotOf(&Node::IsCheckedOut));
  EXPECT_EQ(34, SlotOf(&Node::CanUndoCheckIn));
  EXPECT_EQ(35, SlotOf(&Node::GetExtraData));
}

TEST(Slots, SetupNodeKeepsItsOrder) {
  using Node = SDSetupInterface;
  using Error = Node::SDError;
  EXPECT_EQ(13, SlotOf(&Node::SetSampleFolder));
  EXPECT_EQ(14, SlotOf(&Node::GetSampleFolder));
  EXPECT_EQ(15, SlotOf(&Node::GetTargetPlatform));
  EXPECT_EQ(16, SlotOf(&Node::EnumerateSampleFormats));
  EXPECT_EQ(17, SlotOf(&Node::EnumerateQualityClasses));
  EXPECT_EQ(18, SlotOf(&Node::GetNumQualityClasses));
  EXPECT_EQ(19, SlotOf(&Node::GetQualityClassLevel));
  EXPECT_EQ(20, SlotOf(&Node::GetQualityClassName));
  EXPECT_EQ(21, SlotOf(&Node::GetQualityClassNameFromLevel));
  EXPECT_EQ(22, SlotOf(Overload<Error, Node, const qz::string&, qz::uchar, qz::ushort>(
                    &Node::AddQualityClass)));
  EXPECT_EQ(23,
            SlotOf(Overload<Error, Node, const qz::string&, qz::uchar>(&Node::AddQualityClass)));
  EXPECT_EQ(24, SlotOf(&Node::RemoveQualityClass));
  EXPECT_EQ(25, SlotOf(static_cast<bool (Node::*)(qz::uchar) const>(&Node::ProbeQualityClass)));
  EXPECT_EQ(26,
            SlotOf(static_cast<bool (Node::*)(const qz::string&) const>(&Node::ProbeQualityClass)));
  EXPECT_EQ(27, SlotOf(&Node::AddRef));
  EXPECT_EQ(28, SlotOf(&Node::RemoveRef));
}

TEST(Slots, StreamKeepsItsOrder) {
  using File = DIOFile;
  EXPECT_EQ(1, SlotOf(&File::SetEndian));
  EXPECT_EQ(2, SlotOf(&File::GetAccessMode));
  EXPECT_EQ(3, SlotOf(&File::GetFileTime));
  EXPECT_EQ(4, SlotOf(Overload<bool, File, qz::uint64&>(&File::GetFileSize)));
  EXPECT_EQ(5, SlotOf(Overload<bool, File, qz::ulong&>(&File::GetFileSize)));
  EXPECT_EQ(6, SlotOf(Overload<bool, File, qz::uint64&>(&File::GetPosition)));
  EXPECT_EQ(7, SlotOf(Overload<bool, File, qz::ulong&>(&File::GetPosition)));
  using Seek = File::DIOSeekMode;
  EXPECT_EQ(8, SlotOf(Overload<bool, File, qz::int64, Seek>(&File::SetPosition)));
  EXPECT_EQ(9, SlotOf(Overload<bool, File, qz::uint64, Seek>(&File::SetPosition)));
  EXPECT_EQ(10, SlotOf(Overload<bool, File, qz::slong, Seek>(&File::SetPosition)));
  EXPECT_EQ(11, SlotOf(Overload<bool, File, qz::ulong, Seek>(&File::SetPosition)));
  EXPECT_EQ(12, SlotOf(Overload<bool, File, void*, qz::ulong, qz::ulong>(&File::Read)));
  EXPECT_EQ(13, SlotOf(Overload<bool, File, char&>(&File::Read)));
  EXPECT_EQ(14, SlotOf(Overload<bool, File, qz::uchar&>(&File::Read)));
  EXPECT_EQ(15, SlotOf(Overload<bool, File, short&>(&File::Read)));
  EXPECT_EQ(16, SlotOf(Overload<bool, File, qz::ushort&>(&File::Read)));
  EXPECT_EQ(17, SlotOf(Overload<bool, File, qz::slong&>(&File::Read)));
  EXPECT_EQ(18, SlotOf(Overload<bool, File, qz::ulong&>(&File::Read)));
  EXPECT_EQ(19, SlotOf(Overload<bool, File, qz::int64&>(&File::Read)));
  EXPECT_EQ(20, SlotOf(Overload<bool, File, qz::uint64&>(&File::Read)));
  EXPECT_EQ(21, SlotOf(Overload<bool, File, float&>(&File::Read)));
  EXPECT_EQ(22, SlotOf(Overload<bool, File, double&>(&File::Read)));
  EXPECT_EQ(23, SlotOf(Overload<bool, File, File::v32&>(&File::Read)));
  EXPECT_EQ(24, SlotOf(&File::ReadString));
  EXPECT_EQ(25, SlotOf(Overload<bool, File, const void*, qz::ulong, qz::ulong>(&File::Write)));
  EXPECT_EQ(26, SlotOf(Overload<bool, File, char>(&File::Write)));
  EXPECT_EQ(27, SlotOf(Overload<bool, File, qz::uchar>(&File::Write)));
  EXPECT_EQ(28, SlotOf(Overload<bool, File, short>(&File::Write)));
  EXPECT_EQ(29, SlotOf(Overload<bool, File, qz::ushort>(&File::Write)));
  EXPECT_EQ(30, SlotOf(Overload<bool, File, qz::slong>(&File::Write)));
  EXPECT_EQ(31, SlotOf(Overload<bool, File, qz::ulong>(&File::Write)));
  EXPECT_EQ(32, SlotOf(Overload<bool, File, qz::int64>(&File::Write)));
  EXPECT_EQ(33, SlotOf(Overload<bool, File, qz::uint64>(&File::Write)));
  EXPECT_EQ(34, SlotOf(Overload<bool, File, float>(&File::Write)));
  EXPECT_EQ(35, SlotOf(Overload<bool, File, double>(&File::Write)));
  EXPECT_EQ(36, SlotOf(Overload<bool, File, const File::v32&>(&File::Write)));
  EXPECT_EQ(37, SlotOf(&File::WriteString));
  EXPECT_EQ(38, SlotOf(&File::WriteStringZ));
  EXPECT_EQ(39, SlotOf(Overload<bool, File, DIOFile*>(&File::Insert)));
  EXPECT_EQ(40, SlotOf(Overload<bool, File, DIOFile*, qz::uint64>(&File::Insert)));
  EXPECT_EQ(41, SlotOf(&File::SetLabelMode));
  EXPECT_EQ(42, SlotOf(&File::SetLabel));
  EXPECT_EQ(43, SlotOf(&File::GetLabel));
  EXPECT_EQ(44, SlotOf(&File::WriteLabel));
}

// --- Factory ---

class Frame : public SampleDataTest {
 protected:
  void* Create(const _GUID& type) { return base_.CreateInterface(&type, &dbSubTypeTarvane); }

  PGISampleDataBaseInterface base_{&platform::thisModule};
};

TEST_F(Frame, TellsWhatItIs) {
  const PGIVersionInfo* version = base_.GetVersionInfo();
  EXPECT_STREQ("Tarvane Sample Data Manager", version->name);
  EXPECT_STREQ("Copyright (c) 2026 the SampleData authors", version->copyright);
  EXPECT_STREQ("The SampleData authors", version->author);
  EXPECT_EQ(1, version->majorVersion);
  EXPECT_EQ(0, version->minorVersion);
}

TEST_F(Frame, EnumeratesTheTwoKindsAgainAndAgain) {
  EXPECT_EQ(nullptr, base_.GetNextInterface()) << "nothing is under the cursor before the start";
  for (int round = 0; round < 2; ++round) {
    const PGIInterfaceInfo* sample = base_.GetFirstInterface();
    ASSERT_NE(nullptr, sample);
    EXPECT_STREQ("SampleData", sample->name);
    EXPECT_EQ(0, std::memcmp(&hdbTypeSampleData, &sample->guid, sizeof sample->guid));
    EXPECT_EQ(0u, sample->numSubTypes);
    const PGIInterfaceInfo* setup = base_.GetNextInterface();
    ASSERT_NE(nullptr, setup);
    EXPECT_STREQ("SampleDataSetup", setup->name);
    EXPECT_EQ(0, std::memcmp(&hdbTypeSampleDataSetup, &setup->guid, sizeof setup->guid));
    EXPECT_EQ(nullptr, base_.GetNextInterface());
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

TEST_F(Frame, PicksTheKindByGuidNotByName) {
  PGIInterfaceDescriptor descriptor{};
  std::strcpy(descriptor.name, "SampleDataSetup");
  descriptor.guid = hdbTypeSampleData;
  descriptor.subTypeValid = true;
  descriptor.subType = dbSubTypeTarvane;
  void* object = base_.CreateInterface(&descriptor);
  ASSERT_NE(nullptr, object);
  EXPECT_EQ(ID_TYPE_SAMPLE, static_cast<HDBAccessBaseInterface*>(object)->GetRefType());
  // The sub type plays no part in giving back.
  descriptor.subTypeValid = false;
  base_.ReleaseInterface(&descriptor, object);
  EXPECT_TRUE(base_.RequestRemoval());
}

TEST_F(Frame, MayGoOnlyWhenEveryObjectIsBack) {
  void* sample = Create(hdbTypeSampleData);
  void* setup = Create(hdbTypeSampleDataSetup);
  EXPECT_FALSE(base_.RequestRemoval());
  base_.ReleaseInterface(&hdbTypeBaseNode, sample);  // no kind of ours: the object lives on
  EXPECT_EQ(ID_TYPE_SAMPLE, static_cast<HDBAccessBaseInterface*>(sample)->GetRefType());
  base_.ReleaseInterface(&hdbTypeSampleData, sample);
  EXPECT_FALSE(base_.RequestRemoval());
  base_.ReleaseInterface(&hdbTypeSampleDataSetup, setup);
  EXPECT_TRUE(base_.RequestRemoval());
}

TEST_F(Frame, CountsNoObjectThatMemoryDidNotSufficeFor) {
  for (const _GUID& type : {hdbTypeSampleData, hdbTypeSampleDataSetup}) {
    FailingAllocation fault(1);
    EXPECT_EQ(nullptr, Create(type));
    EXPECT_TRUE(fault.Fired());
  }
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

  for (int n = 1;; ++n) {
    FailingAllocation fault(n);
    EXPECT_TRUE(DllMain(&platform::thisModule, DLL_PROCESS_ATTACH, nullptr));
    const bool fired = fault.Fired();
    EXPECT_EQ(fired, RequestBaseInterface() == nullptr);
    EXPECT_TRUE(DllMain(&platform::thisModule, DLL_PROCESS_DETACH, nullptr));
    if (!fired) break;
  }
}

// --- The built module ---

class Module : public SampleDataTest {
 protected:
  Module() : library_(dlopen(SAMPLEDATA_SO, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(nullptr, library_) << dlerror();
  }
  ~Module() override { EXPECT_TRUE(library_ == nullptr || dlclose(library_) == 0); }
  PGIBaseInterface* Base() {
    void* symbol = dlsym(library_, REQUESTBASEINTERFACE_NAME);
    return symbol == nullptr ? nullptr : reinterpret_cast<RequestBaseInterfaceFunction>(symbol)();
  }

  void* library_;
};

TEST_F(Module, ExportsOneSymbol) {
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

// The module has its own copy of everything below it, so drives that this program mounts are
// unknown in there: the database lies on C:.
TEST_F(Module, GivesNodesThatWorkThroughTheirSlots) {
  ASSERT_NE(nullptr, library_);
  PGIBaseInterface* base = Base();
  ASSERT_NE(nullptr, base);
  using Create = void* (PGIBaseInterface::*)(const _GUID*, const _GUID*);
  using Release = void (PGIBaseInterface::*)(const _GUID*, void*);
  using Removal = bool (PGIBaseInterface::*)();
  void* setup = (base->*InSlot<Create>(5))(&hdbTypeSampleDataSetup, &dbSubTypeTarvane);
  void* sample = (base->*InSlot<Create>(5))(&hdbTypeSampleData, &dbSubTypeTarvane);
  EXPECT_FALSE((base->*InSlot<Removal>(9))());
  (base->*InSlot<Release>(7))(&hdbTypeSampleData, sample);
  (base->*InSlot<Release>(7))(&hdbTypeSampleDataSetup, setup);
  EXPECT_TRUE((base->*InSlot<Removal>(9))());

  FakeHost host(("C:" + folder_ + "/s/db/game.db").c_str(), base);
  FakeNode& setupNode = host.AddSetup();
  FakeNode& sampleNode = host.AddSample();
  ASSERT_TRUE(setupNode.InitSucceeded());
  ASSERT_TRUE(sampleNode.InitSucceeded());

  using Node = SDSetupInterface;
  Node* classes = static_cast<Node*>(setupNode.GetTypeInterface());
  using Add = Node::SDError (Node::*)(const qz::string&, qz::uchar);
  using ProbeLevel = bool (Node::*)(qz::uchar) const;
  using ProbeName = bool (Node::*)(const qz::string&) const;
  using Number = qz::uchar (Node::*)() const;
  EXPECT_EQ(Node::ERROR_OK, (classes->*InSlot<Add>(23))("High", 7));
  EXPECT_TRUE((classes->*InSlot<ProbeLevel>(25))(7));
  EXPECT_TRUE((classes->*InSlot<ProbeName>(26))("High"));
  EXPECT_EQ(1, (classes->*InSlot<Number>(18))());

  using Access = SDAccessInterface;
  Access* access = static_cast<Access*>(sampleNode.GetTypeInterface());
  using Text = qz::string (Access::*)() const;
  using Import = Access::SDError (Access::*)(const qz::string&, qz::uchar, const qz::string&);
  EXPECT_EQ("Nintendo GAMECUBE", (access->*InSlot<Text>(13))());
  EXPECT_EQ(Access::ERROR_UNKNOWNCLASS, (access->*InSlot<Import>(16))("kick.wav", 2, "Low"));
  // The module finds its own texts.
  EXPECT_EQ("Quality class does not exist", FakeHost::ErrorText(sampleNode));
  EXPECT_EQ("Ok", FakeHost::ErrorText(setupNode));
  host.Close();
  EXPECT_TRUE(base->RequestRemoval());
}

TEST_F(Module, StreamOfTheHostWorksThroughItsSlots) {
  DIOFile* file = DIOFile::OpenFile("S:\\stream", DIOFile::OPENMODE_CREATE);
  ASSERT_NE(nullptr, file);
  using WriteNumber = bool (DIOFile::*)(qz::ulong);
  using Position = bool (DIOFile::*)(qz::uint64&);
  using Label = bool (DIOFile::*)(const qz::string&);
  EXPECT_TRUE((file->*InSlot<Label>(44))("end"));
  EXPECT_TRUE((file->*InSlot<WriteNumber>(31))(0x12345678));
  EXPECT_TRUE((file->*InSlot<Label>(42))("end"));
  qz::uint64 position = 0;
  EXPECT_TRUE((file->*InSlot<Position>(6))(position));
  EXPECT_EQ(8u, position);
  EXPECT_TRUE(DIOFile::CloseFile(file));
  EXPECT_EQ(std::string("\x08\0\0\0\x78\x56\x34\x12", 8), ReadBytes(folder_ + "/s/stream"));
}

}  // namespace
}  // namespace sdtest
