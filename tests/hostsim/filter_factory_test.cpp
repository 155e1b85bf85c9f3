// The filter factory chain and the faults it injects into every filter it
// hands out.
#include <gtest/gtest.h>
#include <hostsim/filter_factory.h>
#include <hostsim/recording_filter.h>

namespace {

using videoprocess::ProcessorCreator;
using videoprocess::VideoFilter;
using videoprocess::VideoFormat;
using Filter = std::unique_ptr<VideoFilter>;

class FilterFactory : public ::testing::Test {
protected:
  void SetUp() override {
    hostsim::setFilterFaults({});
    hostsim::resetCreateFilterCalls();
  }
  void TearDown() override { hostsim::setFilterFaults({}); }
  std::shared_ptr<hostsim::FilterJournal> journal = std::make_shared<hostsim::FilterJournal>();
  hostsim::FilterFactory recorder = [j = journal](VideoFormat f, bool) -> VideoFilter* {
    return new hostsim::RecordingFilter(f, j);
  };
};

TEST_F(FilterFactory, OverrideWinsWhileItLivesThenTheDefaultJournalRecords) {
  int made = 0;
  {
    hostsim::FilterFactoryOverride outer([&](VideoFormat f, bool b) -> VideoFilter* {
      ++made;
      return recorder(f, b);
    });
    {
      hostsim::FilterFactoryOverride inner(
          [](VideoFormat, bool) -> VideoFilter* { return nullptr; });
      EXPECT_EQ(hostsim::makeFilter(VideoFormat(10), false, {}), nullptr);
    }
    Filter f(hostsim::makeFilter(VideoFormat(10), false, {}));
    ASSERT_NE(f, nullptr);
    f->setFilterScript("CubeLutEffect;cube_strength=1.0;@CvStyleEffect;Width=4;");
    EXPECT_EQ(f->getEffectCount(), 2);
  }
  EXPECT_EQ(std::make_tuple(made, journal->destroyed(), hostsim::createFilterCalls()),
            std::make_tuple(1, 1, 2));
  EXPECT_EQ(hostsim::createFilterFormats(), (std::vector<int>{10, 10}));
  // Without an override or an SDK in the process: a recording filter on the default journal.
  hostsim::defaultFilterJournal()->clear();
  Filter f(hostsim::makeFilter(VideoFormat(9), false, {}));
  ASSERT_NE(f, nullptr);
  f->clearEffects();
  f.reset();
  EXPECT_EQ(hostsim::defaultFilterJournal()->names(), std::vector<std::string>{"clearEffects"});
  EXPECT_EQ(hostsim::defaultFilterJournal()->destroyed(), 1);
}

TEST_F(FilterFactory, FaultsCountDownOrLastForeverAndFailedCallsAreJournaled) {
  hostsim::FilterFactoryOverride override(recorder);
  hostsim::setFilterFaults({1, 2, 1});
  EXPECT_EQ(hostsim::makeFilter(VideoFormat(9), false, {}), nullptr);
  Filter f(hostsim::makeFilter(VideoFormat(9), false, {}));
  ASSERT_NE(f, nullptr);
  const uint8_t lut[2 * 2 * 2 * 3] = {1, 2, 3};
  videoprocess::FilterFrameParam in{}, out{};
  // Evaluated in order: two refused LUTs, one accepted, one failed render, one good.
  const std::vector<int> results = {f->addLutEffectData(lut, 2, -1, 3, 512),
                                    f->addLutEffectData(lut, 2, -1, 3, 512),
                                    f->addLutEffectData(lut, 2, -1, 3, 512),
                                    f->processFrame(&in, &out), f->processFrame(&in, &out)};
  EXPECT_EQ(results, (std::vector<int>{0, 0, 1, -1, 0}));
  const hostsim::FilterFaults left = hostsim::filterFaults();
  EXPECT_EQ(left.failCreateCount + left.refuseLutCount + left.failRenderCount, 0);
  std::vector<bool> failed;
  for (const hostsim::FilterCall& call : journal->calls()) failed.push_back(call.failed);
  EXPECT_EQ(failed, (std::vector<bool>{true, true, false, true, false}));

  // A negative count fails forever and stays negative.
  hostsim::setFilterFaults({0, 0, -1});
  for (int i = 0; i < 5; ++i) EXPECT_EQ(f->processFrame(&in, &out), -1);
  EXPECT_EQ(hostsim::filterFaults().failRenderCount, -1);
  hostsim::setFilterFaults({});
  EXPECT_EQ(f->processFrame(&in, &out), 0);
}

}  // namespace
