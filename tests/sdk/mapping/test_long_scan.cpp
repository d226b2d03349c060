// Three minutes of live scanning through the virtual camera looping a recording, on after the
// mapping memory budget is reached: from then on the map cannot grow, and neither may the
// process. The verdict is robust to noise: the Theil-Sen slope of resident memory over the
// samples after the budget (plus a settling minute) must not add up to more than the limit over
// that window while rising steadily (Kendall's tau). Frame rate does not enter it.
#include <gtest/gtest.h>

#include <iostream>

#include "long_scan.h"
#include "synth/internal/synth.h"
#include "test_utils.h"

TEST(LongScan, ResidentMemoryLevelsOffOnceTheMapBudgetIsReached) {
  pv::internal::synth::SynthOptions room;
  room.frames = 150;
  room.resolution = pv::RESOLUTION::VGA;
  room.seed = 5;
  const std::string recording = mapura::test::scratchDir("long_scan") + "/room.ktr";
  ASSERT_EQ(pv::internal::synth::synthesize(room, recording), pv::ERROR_CODE::SUCCESS);

  mapura::bench::LongScanOptions o;
  o.recording = recording;
  o.minutes = 3;
  o.sample_every_s = 5;
  o.memory_mb = 1;
  o.resolution_m = 0.02f;
  bool first = true;
  const mapura::bench::LongScanResult result =
      mapura::bench::runLongScan(o, [&](const mapura::bench::LongScanSample& s) {
        std::cout << mapura::bench::formatSample(s, first) << std::endl;
        first = false;
      });
  ASSERT_TRUE(result.error.empty()) << result.error;
  ASSERT_GE(result.budget_reached_s, 0) << "the budget was never reached: the test judges nothing";
  ASSERT_GT(result.samples.back().frames, 300) << "the recording must have looped";
  const mapura::bench::GrowthVerdict verdict =
      mapura::bench::judgeGrowthAfterBudget(result, 30, mapura::bench::kGrowthLimitMb);
  std::cout << verdict.text << std::endl;
  ASSERT_TRUE(verdict.judged) << verdict.text;
  EXPECT_FALSE(verdict.steady_growth) << verdict.text;
  // The map itself stays within its budget.
  for (const mapura::bench::LongScanSample& s : result.samples) EXPECT_LE(s.map_mb, o.memory_mb + 1.0) << s.t_s;
}
