#include <gtest/gtest.h>

#include "support/TestEnvironment.h"

namespace {

// Every test starts from a fresh process state, whether the suite runs as one process or one
// process per test.
class ResetBetweenTests : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { zorva::test::resetProcessState(); }
  void OnTestEnd(const testing::TestInfo&) override { zorva::test::resetProcessState(); }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new ResetBetweenTests);
  return RUN_ALL_TESTS();
}
