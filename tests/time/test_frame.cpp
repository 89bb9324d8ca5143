// Frame count, frame pacing against "frame_interval" with a pinned wall
// time, and the verify function that picks the current time converter.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "time_support.hpp"
#include "vqutil/error.h"
#include "vqutil/option.h"
#include "vqutil/time.h"

namespace {

using timetest::OutputCapture;
using Clock = std::chrono::steady_clock;

void PinWall(D_INT4 seconds, D_INT4 microseconds) {
  D_TIME_VALUE pin{seconds, microseconds};
  DutSetTestWallTimeStruct(&pin);
}

// "frame_interval" set to 0.1 s; made here (numeric, as the standard option
// set defines it) when the set in use does not have it yet.
class FramePacing : public testing::Test {
 protected:
  void SetUp() override {
    option_ = DutOptionLookup("frame_interval");
    if (option_ == nullptr) option_ = DutOptionCreate("frame_interval", D_OPT_TYPE_NUMERIC);
    ASSERT_NE(option_, nullptr);
    ASSERT_EQ(DutOptionSetNum(option_, 0.1), D_TRUE);
    DutFrameReset();
  }
  void TearDown() override {
    DutOptionSetNum(option_, 0.0);
    DutFrameReset();
    PinWall(-1, -1);
  }
  D_OPTION *option_ = nullptr;
};

TEST(FrameCount, StableAddressSharedByAllCallers) {
  D_UINT4 before = *DutFrameCountGetPtr();
  ++*DutFrameCountGetPtr();
  EXPECT_EQ(*DutFrameCountGetPtr(), before + 1);
}

TEST_F(FramePacing, LateFramesWarnEarlyOnesSleepOutTheRest) {
  EXPECT_FAILS(DutFrameCheck(2), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_FAILS(DutFrameCheck(-1), D_FALSE, D_ERR_VAL_INVALID);
  OutputCapture capture;
  PinWall(100, 0);
  EXPECT_EQ(DutFrameCheck(1), D_TRUE) << "the first check only notes the time";
  PinWall(100, 300000);  // the frame took 0.3 s of a 0.1 s interval; a late frame never sleeps
  EXPECT_FAILS(DutFrameCheck(1), D_FALSE, D_ERR_TIMEOUT_REACHED);
  EXPECT_EQ(capture.Take(), "WARNING: Unable to keep up with frame interval by 0.2 seconds.\n");
  // The next frame is measured from the late one.
  PinWall(100, 350000);
  EXPECT_EQ(DutFrameCheck(0), D_TRUE);
  PinWall(100, 390000);
  auto start = Clock::now();
  EXPECT_EQ(DutFrameCheck(1), D_TRUE);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(55)) << "0.06 s were left of the interval";
  // The last frame is the wall time after the sleep (still the pin).
  PinWall(100, 500000);
  EXPECT_EQ(DutFrameCheck(0), D_FALSE);
  EXPECT_EQ(capture.Take(), "WARNING: Unable to keep up with frame interval by 0.01 seconds.\n");

  // After a reset the check is a first one; without an interval nothing is late.
  PinWall(600, 0);
  DutFrameReset();
  EXPECT_EQ(DutFrameCheck(0), D_TRUE);
  ASSERT_EQ(DutOptionSetNum(option_, 0.0), D_TRUE);
  PinWall(5000, 0);
  EXPECT_EQ(DutFrameCheck(1), D_TRUE);
  EXPECT_EQ(capture.Take(), "");
}

TEST_F(FramePacing, MissingOptionIsFatal) {
  VQTEST_EXPECT_ASSERTION(
      {
        DutOptionDestroy(DutOptionLookup("frame_interval"));
        DutFrameReset();
        DutFrameCheck(0);
      },
      "D_NULL != utFrameInterval");
}

TEST(TimeFormatCheck, NamedConverterBecomesCurrent) {
  D_OPTION *option = DutOptionCreate("test_time_format", D_OPT_TYPE_ENUM);
  ASSERT_NE(option, nullptr);
  DutOptionSetVerifyFunc(option, DutTimeFormatCheck, nullptr);
  EXPECT_EQ(DutOptionSetEnum(option, "NUMERIC"), D_TRUE);
  EXPECT_EQ(DutTimeCvtGetCurrent(), DutTimeCvtLookup("numeric"));
  OutputCapture capture;
  EXPECT_FAILS(DutOptionSetEnum(option, "sundial"), D_FALSE, D_ERR_DOESNT_EXIST);
  EXPECT_EQ(capture.Take(), "WARNING: Time converter <sundial> does not exist.\n");
  EXPECT_EQ(DutTimeCvtGetCurrent(), DutTimeCvtLookup("numeric")) << "a refused value changes nothing";
  EXPECT_STREQ(DutOptionValToStr(option), "NUMERIC");
  ASSERT_EQ(DutTimeCvtSetCurrent(DutTimeCvtLookup("hms")), D_TRUE);
}

}  // namespace
