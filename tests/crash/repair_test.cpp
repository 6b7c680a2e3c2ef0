// Repairs what every operation leaves after every single write: one run makes it clean and mountable, and keeps all
// that the operation had nothing to do with. The same where the repair itself is stopped after any of its writes and
// run again.
#include "crash/operation_test.h"

namespace orba {

namespace {

using testhost::Bystanders;
using testhost::FileImage;

class RepairedOperation : public OperationTest {
 protected:
  void SetUp() override;

  // Repairs a container and judges what comes of it. Result: the container after 0, 1, 2 ... writes of the repair.
  std::vector<FileImage> Repair(const FileImage& image);

  // False where this very container was repaired before.
  bool IsNew(const FileImage& image);

  const Bystanders& bystanders() const { return bystanders_.front(); }

 private:
  std::vector<Bystanders> bystanders_;
  std::set<size_t> repaired_;
};

void RepairedOperation::SetUp() {
  OperationTest::SetUp();
  std::vector<std::string> touched = operation().touched;
  if (touched.front() != "/") touched.push_back("/");  // what is found goes to a new directory there
  bystanders_.emplace_back(states().front().image, touched);
  testhost::SetTracing(false);
}

bool RepairedOperation::IsNew(const FileImage& image) { return repaired_.insert(image.Hash()).second; }

std::vector<FileImage> RepairedOperation::Repair(const FileImage& image) {
  std::vector<FileImage> steps = RunRepair(image).images;
  const inspect::Report report = testhost::Inspect(steps.back());
  EXPECT_EQ(testhost::Verdict(report), "clean");
  EXPECT_EQ(bystanders().MissingFrom(steps.back(), report), "");
  return steps;
}

TEST_P(RepairedOperation, is_clean_after_one_run) {
  for (size_t k = 0; k < states().size(); ++k) {
    if (!HasTurn(k, states().size(), kAll, {2, 197})) continue;
    SCOPED_TRACE("after " + std::to_string(k));
    const std::vector<FileImage> steps = Repair(states()[k].image);
    // What is clean and unmarked is left alone.
    EXPECT_EQ(steps.size() == 1, states()[k].report.IsClean() && !states()[k].report.marked);
    ASSERT_EQ(Outcome(testhost::MountContainer(steps.back())), "");
    EXPECT_EQ(bystanders().MissingFrom(testhost::ReadVolume("A")), "");
    EXPECT_EQ(UseVolume(), "");
    EXPECT_EQ(OrbUnmountVolumeA("A"), 1);
    EXPECT_EQ(testhost::Verdict(testhost::GetFile(testhost::kChangedContainer)), "clean");
    Count("states repaired");
  }
}

TEST_P(RepairedOperation, is_clean_after_a_second_run_where_the_first_is_stopped) {
  for (size_t k = 0; k < states().size(); ++k) {
    if (!HasTurn(k, states().size(), kAll, {2, 197})) continue;
    SCOPED_TRACE("after " + std::to_string(k));
    const std::vector<FileImage> steps = Repair(states()[k].image);
    for (size_t i = 1; i < steps.size(); ++i) {
      SCOPED_TRACE("repair stopped after " + std::to_string(i));
      if (IsNew(steps[i])) Repair(steps[i]);
      Count("stopped repairs run again");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, RepairedOperation, ::testing::ValuesIn(AllOperations()), NameOfOperation);

}  // namespace

}  // namespace orba
