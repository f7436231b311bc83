// Every call that an ordinary pass makes of its file system fails once, in every way that such a
// call can fail: what is left on the disk is exactly what a literal model of the rules says.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "tests/install/installation.h"
#include "tests/install/pass_model.h"
#include "tests/install/tree_state.h"
#include "tests/support/private_mounts.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

/// The ways in which a call can fail: no space and access denied, an input or output error, a
/// transfer cut short, no memory.
std::vector<Fault> FaultsOf(Op op) {
  const Fault no_memory{Fault::Kind::kNoMemory};
  switch (op) {
    case Op::kFileRead:
      return {Code(87), {Fault::Kind::kShort}, {Fault::Kind::kNothing}, no_memory};
    case Op::kFileWrite:
      return {
          {Fault::Kind::kFailedWrite}, {Fault::Kind::kShort}, {Fault::Kind::kNothing}, no_memory};
    case Op::kFileOpen:
    case Op::kMakeDirectory:
    case Op::kMove:
      return {Code(2), Code(87), no_memory};
    case Op::kFileClose:
      return {Code(87)};
    default:
      return {Code(87), no_memory};
  }
}

class OrdinaryFaultTest : public InstallTest, public ::testing::WithParamInterface<Scene> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(HasPrivateMounts());
    volume_.emplace(root().string(), 64 << 20);
    ASSERT_TRUE(volume_->mounted());
    fs::create_directory(home());
    fs::create_directory(tmp());
    for (const SceneFile& file : SceneFiles()) {
      files_.push_back({file.name, data_.size(), file.contents.size(), kKitTime});
      data_ += file.contents;
    }
  }

  void Restore() {
    SetScene(GetParam(), target());
    fs::remove_all(tmp());
    WriteFile(tmp() / "foreign", "not ours");
    WriteFile(tmp() / "kstage0/foreign", "another installer's");
  }
  ModelDisk Disk() const {
    ModelDisk disk(root());
    disk.Load(target());
    disk.Load(tmp());
    return disk;
  }

  /// Compares a pass over the disk with one over the model, without a fault and then for every call
  /// from `first` on and every fault.
  void CompareAll(const KitBuilder& kit_builder, std::size_t first = 1) {
    using Policy = FaultyFileSystem<FileSystem>;
    Installation<Policy> installation(kit_builder, kit(), target());
    Restore();
    ModelDisk disk = Disk();
    PassModel sound(disk, files_, data_, target(), tmp());
    const std::uint32_t sound_code = sound.Run(0, {});
    const std::vector<Op> calls = sound.calls();
    int faults = 0, as_without = 0;
    for (std::size_t nth = 0; nth <= calls.size(); nth = std::max(nth + 1, first)) {
      for (const Fault& fault : nth == 0 ? std::vector<Fault>{{}} : FaultsOf(calls[nth - 1])) {
        SCOPED_TRACE("call " + std::to_string(nth) + ", operation " +
                     std::to_string(nth == 0 ? -1 : static_cast<int>(calls[nth - 1])) + ", fault " +
                     std::to_string(static_cast<int>(fault.kind)));
        Restore();
        ModelDisk expected = Disk();
        PassModel model(expected, files_, data_, target(), tmp());
        const std::uint32_t expected_code = model.Run(nth, fault);

        installation.SetTarget(U16(target() / ""));
        installation.script.Clear();
        if (nth != 0) installation.script.OnCall(nth, fault);
        ASSERT_EQ(installation.Run(), expected_code);
        std::vector<Op> made;
        for (const auto& call : installation.script.calls()) made.push_back(call.op);
        ASSERT_TRUE(made == model.calls());
        ASSERT_EQ(expected.Differences(Disk()), "");
        faults += nth == 0 ? 0 : 1;
        as_without += nth != 0 && expected_code == sound_code ? 1 : 0;
      }
    }
    std::cout << calls.size() << " calls, " << faults << " faults tried, " << as_without
              << " of them with the same result as none\n";
  }

  std::optional<PrivateVolume> volume_;
  std::vector<ModelFile> files_;
  std::string data_;
};

TEST_P(OrdinaryFaultTest, AFailureOfAnyCallLeavesWhatTheRulesSay) { CompareAll(SceneKit()); }

TEST_P(OrdinaryFaultTest, AFailureOfAnyCallOfARollbackLeavesWhatTheRulesSay) {
  Restore();
  ModelDisk disk = Disk();
  PassModel sound(disk, files_, data_, target(), tmp());
  ASSERT_EQ(sound.Run(0, {}), 0u);
  // Two calls commit; a file that cannot be installed comes before them.
  const std::size_t first = sound.calls().size() - 1;
  files_.push_back({"z", 0, 0x10000000, kKitTime});
  CompareAll(SceneKit().FileAt(u"z", 0, 0x10000000), first);
}

INSTANTIATE_TEST_SUITE_P(Matrix, OrdinaryFaultTest, ::testing::ValuesIn(kScenes),
                         [](const auto& row) { return NameOf(row.param); });

}  // namespace
}  // namespace quarn::testing
