// The two log outputs: logcat threadtime lines, the offline log file under
// the device root, captures, destinations and the property-driven gates.
#include <android/log.h>
#include <gtest/gtest.h>
#include <hostsim/log_sink.h>
#include <hostsim/properties.h>
#include <sys/syscall.h>
#include <vyalgo2/VyLog.h>

#include <regex>

#include "support.h"

namespace {

using hostsim_test::linesOf;

class LogFiles : public hostsim_test::DeviceRootTest {
protected:
  void TearDown() override {
    hostsim::setAndroidLogFile("");
    hostsim::setOfflineLogFile("");
    hostsim::setAndroidLogMinPriority(ANDROID_LOG_VERBOSE);
    hostsim::clearProperties();
    gVyCamLogLevel = gVyCamOfflineLogLevel = 0;
    gVyCamLogGroup = gVyCamOfflineLogGroup = 0xFFFFFFFFu;
    gVyCamDebugMask = 0;
    DeviceRootTest::TearDown();
  }
};

TEST_F(LogFiles, AndroidLinesHaveTheThreadtimeShape) {
  ASSERT_TRUE(hostsim::setAndroidLogFile((dir / "logcat.txt").string()));
  __android_log_print(ANDROID_LOG_INFO, "ab", "hello %d", 5);
  __android_log_print(ANDROID_LOG_ERROR, "VyAlgoEngine", "two\nlines\n\n");
  __android_log_print(ANDROID_LOG_DEBUG, "TagOfEight", "%s", "x");
  hostsim::setAndroidLogFile("");
  // MM-DD HH:MM:SS.mmm, " %5d %5d " process and thread ids, letter, tag padded to 8, message.
  const std::regex stamp(R"((0\d|1[0-2])-[0-3]\d ([01]\d|2[0-3]):[0-5]\d:[0-5]\d\.\d{3})");
  char ids[32];
  std::snprintf(ids, sizeof ids, " %5d %5d ", ::getpid(), static_cast<int>(syscall(SYS_gettid)));
  const std::vector<std::string> tails = {"I ab      : hello 5", "E VyAlgoEngine: two",
                                          "E VyAlgoEngine: lines", "D TagOfEight: x"};
  const auto lines = linesOf(dir / "logcat.txt");
  ASSERT_EQ(lines.size(), tails.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_TRUE(std::regex_match(lines[i].substr(0, 18), stamp)) << lines[i];
    EXPECT_EQ(lines[i].substr(18), ids + tails[i]);
  }
}

TEST_F(LogFiles, DestinationsAndMinimumPriorityDoNotHideLinesFromCaptures) {
  hostsim::LogCapture capture;
  ASSERT_TRUE(hostsim::setAndroidLogFile((dir / "logcat.txt").string()));
  hostsim::setAndroidLogMinPriority(ANDROID_LOG_WARN);
  __android_log_print(ANDROID_LOG_INFO, "t", "quiet");
  __android_log_print(ANDROID_LOG_ERROR, "t", "loud");
  ASSERT_TRUE(hostsim::setAndroidLogFile("-"));
  __android_log_print(ANDROID_LOG_ERROR, "t", "dropped");
  const auto lines = linesOf(dir / "logcat.txt");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("t       : loud"), std::string::npos);
  EXPECT_EQ(capture.androidMessages(), (std::vector<std::string>{"quiet", "loud", "dropped"}));
  EXPECT_FALSE(hostsim::setAndroidLogFile((dir / "missing" / "x.txt").string()));
}

TEST_F(LogFiles, PropertiesSetTheGatesAndDestinations) {
  using namespace hostsim;
  const std::string text = std::string(kPropLogLevel) + "=4\n" + kPropLogGroup + "=0xFFFFFFFD\n" +
                           kPropOfflineLogLevel + "=-1\n" + kPropOfflineLogGroup + "=2\n" +
                           kPropDebugMask + "=0x10\n" + kPropOfflineLogFile + "=1\n" +
                           kPropLogcatFile + "=" + (dir / "cat.txt").string() + "\n";
  std::string error;
  ASSERT_TRUE(loadPropertyText(text, "log.prop", &error)) << error;
  EXPECT_EQ(applyLogProperties(), "");
  EXPECT_EQ(std::tie(gVyCamLogLevel, gVyCamLogGroup, gVyCamOfflineLogLevel, gVyCamOfflineLogGroup,
                     gVyCamDebugMask),
            std::make_tuple(4, 0xFFFFFFFDu, -1, 2u, 0x10u));
  hostsim::LogCapture capture;
  __android_log_print(ANDROID_LOG_INFO, "t", "to file");
  vydebug::Log::logSystem(2, "V", "lumo_filter/paramUtil", "load", 42, "[LumoFilter] n=%d", 3);
  setAndroidLogFile("");
  setOfflineLogFile("");
  EXPECT_EQ(linesOf(dir / "cat.txt").size(), 1u);
  // The offline log goes under the device root, in our own line format.
  const auto lines = linesOf(dir / "data/vendor/camera/offlinelog/vyalgo_offline.log");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(" V VyaPlugin lumo_filter/paramUtil:42 load() [LumoFilter] n=3"),
            std::string::npos)
      << lines[0];
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(std::tie(records[1].offline, records[1].level, records[1].message),
            std::make_tuple(true, "V", "[LumoFilter] n=3"));

  // Bad values are reported and leave the gates alone.
  clearProperties();
  gVyCamLogLevel = 2, gVyCamDebugMask = 0, gVyCamLogGroup = 0xFFFFFFFFu;
  ASSERT_TRUE(setProperty(kPropLogLevel, "high") && setProperty(kPropDebugMask, "0x100000000") &&
              setProperty(kPropLogGroup, "-1"));
  const std::string problems = applyLogProperties();
  for (const std::string& part : {std::string(kPropLogLevel) + ": \"high\"",
                                  std::string(kPropDebugMask), std::string(kPropLogGroup)})
    EXPECT_NE(problems.find(part), std::string::npos) << problems;
  EXPECT_EQ(std::tie(gVyCamLogLevel, gVyCamDebugMask, gVyCamLogGroup),
            std::make_tuple(2, 0u, 0xFFFFFFFFu));
}

TEST(LogNames, SourcePathsBecomeFolderAndStem) {
  const char* paths[] = {"/src/lumo/lumo_filter/paramUtil.cpp", "paramTrigger.cpp", "/a/b.d/file",
                         "", nullptr};
  const char* names[] = {"lumo_filter/paramUtil", "paramTrigger", "b.d/file", "", ""};
  for (size_t i = 0; i < std::size(paths); ++i)
    EXPECT_EQ(vydebug::Log::getFileName(paths[i]), names[i]) << i;
  EXPECT_STREQ(vydebug::Log::vyaGroupToString(2), "VyaPlugin");
}

}  // namespace
