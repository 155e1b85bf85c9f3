// The two log outputs: logcat threadtime lines, the offline log file under
// the device root, captures, destinations and the property-driven gates.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hostsim/device_root.h>
#include <hostsim/log_sink.h>
#include <hostsim/properties.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vyalgo2/VyLog.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "temp_folder.h"

namespace {

std::vector<std::string> linesOf(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::vector<std::string> out;
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::string padded(long id) {
  char buf[32];
  std::snprintf(buf, sizeof(buf), "%5ld", id);
  return buf;
}

class LogFiles : public ::testing::Test {
protected:
  void SetUp() override {
    dir = hostsim_test::freshTestFolder("hostsim_log_");
    savedRoot = hostsim::deviceRoot();
  }
  void TearDown() override {
    hostsim::setAndroidLogFile("");
    hostsim::setOfflineLogFile("");
    hostsim::setAndroidLogMinPriority(ANDROID_LOG_VERBOSE);
    hostsim::setDeviceRoot(savedRoot);
    hostsim::clearProperties();
    gVyCamLogLevel = 0;
    gVyCamLogGroup = gVyCamOfflineLogGroup = 0xFFFFFFFFu;
    gVyCamOfflineLogLevel = 0;
    gVyCamDebugMask = 0;
    std::filesystem::remove_all(dir);
  }
  std::filesystem::path dir;
  std::string savedRoot;
};

TEST_F(LogFiles, AndroidLinesHaveTheThreadtimeShape) {
  ASSERT_TRUE(hostsim::setAndroidLogFile((dir / "logcat.txt").string()));
  __android_log_print(ANDROID_LOG_INFO, "ab", "hello %d", 5);
  __android_log_print(ANDROID_LOG_ERROR, "VyAlgoEngine", "two\nlines\n\n");
  __android_log_print(ANDROID_LOG_DEBUG, "TagOfEight", "%s", "x");
  hostsim::setAndroidLogFile("");
  const auto lines = linesOf(dir / "logcat.txt");
  ASSERT_EQ(lines.size(), 4u);
  // Letter, tag padded to 8, message.
  const std::string tails[] = {"I ab      : hello 5", "E VyAlgoEngine: two",
                               "E VyAlgoEngine: lines", "D TagOfEight: x"};
  // MM-DD HH:MM:SS.mmm, then " %5d %5d " ids and the tail.
  const std::regex shape(R"((\d\d)-\d\d (\d\d):\d\d:\d\d\.\d{3} +(\d+) +(\d+) (.*))");
  for (size_t i = 0; i < lines.size(); ++i) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[i], m, shape)) << lines[i];
    EXPECT_LE(std::stoi(m[1]), 12);
    EXPECT_LE(std::stoi(m[2]), 23);
    const long pid = std::stol(m[3]), tid = std::stol(m[4]);
    EXPECT_EQ(pid, ::getpid());
    EXPECT_EQ(tid, static_cast<long>(syscall(SYS_gettid)));
    EXPECT_EQ(m[5], tails[i]);
    // The ids end at fixed columns when they have five digits or fewer.
    if (pid < 100000 && tid < 100000) {
      EXPECT_EQ(lines[i].substr(18, 13), " " + padded(pid) + " " + padded(tid) + " ");
    }
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

TEST_F(LogFiles, OfflineLogGoesUnderTheDeviceRoot) {
  hostsim::setDeviceRoot(dir.string());
  const std::string path = hostsim::openOfflineLogUnderDeviceRoot();
  EXPECT_EQ(path, (dir / "data/vendor/camera/offlinelog/vyalgo_offline.log").string());
  hostsim::LogCapture capture;
  vydebug::Log::logSystem(2, "V", "lumo_filter/paramUtil", "load", 42, "[LumoFilter] n=%d", 3);
  hostsim::setOfflineLogFile("");
  const auto lines = linesOf(path);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(" V VyaPlugin lumo_filter/paramUtil:42 load() [LumoFilter] n=3"),
            std::string::npos)
      << lines[0];
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_TRUE(records[0].offline);
  EXPECT_EQ(records[0].level, "V");
  EXPECT_EQ(records[0].message, "[LumoFilter] n=3");
}

TEST_F(LogFiles, PropertiesSetTheGatesAndDestinations) {
  hostsim::setDeviceRoot(dir.string());
  const std::string text = std::string(hostsim::kPropLogLevel) + "=4\n" + hostsim::kPropLogGroup +
                           "=0xFFFFFFFD\n" + hostsim::kPropOfflineLogLevel + "=-1\n" +
                           hostsim::kPropOfflineLogGroup + "=2\n" + hostsim::kPropDebugMask +
                           "=0x10\n" + hostsim::kPropOfflineLogFile + "=1\n" +
                           hostsim::kPropLogcatFile + "=" + (dir / "cat.txt").string() + "\n";
  std::string error;
  ASSERT_TRUE(hostsim::loadPropertyText(text, "log.prop", &error)) << error;
  EXPECT_EQ(hostsim::applyLogProperties(), "");
  EXPECT_EQ(gVyCamLogLevel, 4);
  EXPECT_EQ(gVyCamLogGroup, 0xFFFFFFFDu);
  EXPECT_EQ(gVyCamOfflineLogLevel, -1);
  EXPECT_EQ(gVyCamOfflineLogGroup, 2u);
  EXPECT_EQ(gVyCamDebugMask, 0x10u);
  __android_log_print(ANDROID_LOG_INFO, "t", "to file");
  vydebug::Log::logSystem(2, "I", "f", "g", 1, "offline");
  hostsim::setAndroidLogFile("");
  hostsim::setOfflineLogFile("");
  EXPECT_EQ(linesOf(dir / "cat.txt").size(), 1u);
  EXPECT_EQ(linesOf(dir / "data/vendor/camera/offlinelog/vyalgo_offline.log").size(), 1u);
}

TEST_F(LogFiles, BadLogPropertiesAreReportedAndLeaveTheGatesAlone) {
  ASSERT_TRUE(hostsim::setProperty(hostsim::kPropLogLevel, "high"));
  ASSERT_TRUE(hostsim::setProperty(hostsim::kPropDebugMask, "0x100000000"));
  ASSERT_TRUE(hostsim::setProperty(hostsim::kPropLogGroup, "-1"));
  gVyCamLogLevel = 2;
  const std::string problems = hostsim::applyLogProperties();
  EXPECT_NE(problems.find(std::string(hostsim::kPropLogLevel) + ": \"high\""), std::string::npos)
      << problems;
  EXPECT_NE(problems.find(hostsim::kPropDebugMask), std::string::npos);
  EXPECT_NE(problems.find(hostsim::kPropLogGroup), std::string::npos);
  EXPECT_EQ(gVyCamLogLevel, 2);
  EXPECT_EQ(gVyCamDebugMask, 0u);
  EXPECT_EQ(gVyCamLogGroup, 0xFFFFFFFFu);
}

TEST(LogNames, SourcePathsBecomeFolderAndStem) {
  const std::pair<const char*, const char*> cases[] = {
      {"/src/lumo/lumo_filter/paramUtil.cpp", "lumo_filter/paramUtil"},
      {"lumo_filter/VyLumoFilterPlugin.cpp", "lumo_filter/VyLumoFilterPlugin"},
      {"paramTrigger.cpp", "paramTrigger"},
      {"/a/b.d/file", "b.d/file"},
      {"", ""},
  };
  for (const auto& [path, name] : cases) EXPECT_EQ(vydebug::Log::getFileName(path), name) << path;
  EXPECT_EQ(vydebug::Log::getFileName(nullptr), "");
  EXPECT_STREQ(vydebug::Log::vyaGroupToString(2), "VyaPlugin");
}

}  // namespace
