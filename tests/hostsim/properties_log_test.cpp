// System properties (typed reads with defaults, the Android length rules, files,
// arguments and the environment) and the two log outputs they configure: logcat
// threadtime lines, the offline log under the device root, captures and gates.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hostsim/log_sink.h>
#include <hostsim/properties.h>
#include <sys/syscall.h>
#include <vyalgo2/VyLog.h>

#include <cstring>
#include <fstream>
#include <regex>

#include "support.h"

namespace {

// A fresh device root; the log destinations and gates are put back afterwards.
class HostServices : public hostsim_test::DeviceRootTest {
protected:
  void TearDown() override {
    hostsim::setAndroidLogFile("");
    hostsim::setOfflineLogFile("");
    hostsim::setAndroidLogMinPriority(ANDROID_LOG_VERBOSE);
    gVyCamLogLevel = gVyCamOfflineLogLevel = 0;
    gVyCamLogGroup = gVyCamOfflineLogGroup = 0xFFFFFFFFu;
    gVyCamDebugMask = 0;
    DeviceRootTest::TearDown();
  }
  // A property read that also checks the returned length.
  static std::string get(const char* key, const char* fallback = "dflt") {
    char value[PROPERTY_VALUE_MAX];
    const int n = property_get(key, value, fallback);
    EXPECT_EQ(static_cast<size_t>(n), std::strlen(value));
    return value;
  }
};
using Properties = HostServices;
using LogFiles = HostServices;

TEST_F(Properties, TypedReadsParseOrFallBack) {
  // What is stored (null: unset), and what a read with the default -7 gives.
  const char* stored[] = {
      nullptr,      "",           "42",          "-3",          "0x1F",
      "010",        " 5",         "5 ",          "12abc",       "abc",
      "2147483647", "2147483648", "-2147483648", "-2147483649", "99999999999999999999"};
  const int32_t read[] = {-7, -7, 42, -3, 31, 8, 5, -7, -7, -7, INT32_MAX, -7, INT32_MIN, -7, -7};
  static_assert(std::size(stored) == std::size(read));
  for (size_t i = 0; i < std::size(read); ++i) {
    hostsim::clearProperties();
    ASSERT_EQ(stored[i] ? property_set("vendor.test.int", stored[i]) : 0, 0);
    EXPECT_EQ(property_get_int32("vendor.test.int", -7), read[i]) << (stored[i] ? stored[i] : "-");
  }
  EXPECT_EQ(get("vendor.test.s") + get("vendor.test.s", nullptr) + get(nullptr), "dfltdflt");
  ASSERT_EQ(property_set("vendor.test.s", ""), 0);
  EXPECT_EQ(get("vendor.test.s"), "dflt");  // empty counts as unset
  ASSERT_EQ(property_set("vendor.test.s", "night"), 0);
  EXPECT_EQ(get("vendor.test.s"), "night");
}

TEST_F(Properties, LongValuesFollowTheAndroidRules) {
  const std::string max(PROPERTY_VALUE_MAX - 1, 'a'), over(PROPERTY_VALUE_MAX, 'b');
  // Ordinary properties refuse values of 92 characters or more.
  EXPECT_EQ(property_set("vendor.test.max", max.c_str()), 0);
  EXPECT_EQ(get("vendor.test.max"), max);
  EXPECT_EQ(property_set("vendor.test.over", over.c_str()), -1);
  EXPECT_EQ(get("vendor.test.over"), "dflt");
  std::string error;
  EXPECT_FALSE(hostsim::setProperty("persist.vendor.test.over", over, &error));
  EXPECT_NE(error.find("92 characters long; at most 91"), std::string::npos) << error;
  // Read-only ones may be long; readers see the first 91 characters, as with defaults.
  EXPECT_TRUE(hostsim::setProperty("ro.test.long", over + over));
  EXPECT_EQ(hostsim::allProperties()["ro.test.long"].size(), 2u * PROPERTY_VALUE_MAX);
  EXPECT_EQ(get("ro.test.long"), std::string(91, 'b'));
  EXPECT_EQ(get("vendor.test.none", std::string(200, 'c').c_str()), std::string(91, 'c'));
}

TEST_F(Properties, ArgumentsAndTextInBothLineFormsAndBadLines) {
  // Each argument with its error ("" when accepted).
  const char* arguments[] = {
      "vendor.a=1", "vendor.b=x=y", "vendor.c=", "vendor.d", "=1", "vendor x=1"};
  const char* errors[] = {
      "", "", "", "expected name=value", "invalid property name", "invalid property name"};
  for (size_t i = 0; i < std::size(arguments); ++i) {
    std::string error;
    EXPECT_EQ(hostsim::setPropertyArgument(arguments[i], &error), !*errors[i]) << arguments[i];
    EXPECT_NE(error.find(errors[i]), std::string::npos) << arguments[i] << ": " << error;
  }
  EXPECT_EQ(hostsim::formatProperties(), "[vendor.a]: [1]\n[vendor.b]: [x=y]\n[vendor.c]: []\n");
  hostsim::clearProperties();
  std::string error;
  ASSERT_TRUE(
      hostsim::loadPropertyText("# switches\n\npersist.x.debug=1\n  vendor.spaced  =  night "
                                " \r\n[persist.x.lux]: [300]\n[vendor.empty]: []\n",
                                "props", &error))
      << error;
  EXPECT_EQ(hostsim::formatProperties(),
            "[persist.x.debug]: [1]\n[persist.x.lux]: [300]\n[vendor.empty]: []\n[vendor.spaced]: "
            "[night]\n");
  // Bad lines name file and line, and a file with one sets nothing.
  hostsim::clearProperties();
  const std::pair<std::string, std::string> bad[] = {
      {"vendor.a=1\nno equals sign\n", "p.txt:2: expected name=value"},
      {"vendor.a=1\n\n# c\n[vendor.b] [2]\n", "p.txt:4: expected [name]: [value]"},
      {"[vendor.b]: 2\n", "p.txt:1: expected [name]: [value]"},
      {"bad name=1\n", "p.txt:1: invalid property name \"bad name\""},
      {"vendor.x=" + std::string(100, 'v') + "\n", "p.txt:1: value of vendor.x is 100"}};
  for (const auto& [text, expected] : bad) {
    EXPECT_FALSE(hostsim::loadPropertyText(text, "p.txt", &error));
    EXPECT_EQ(error.substr(0, expected.size()), expected);
    EXPECT_TRUE(hostsim::allProperties().empty()) << text;
  }
}

TEST_F(Properties, FilesAndTheEnvironmentSeedTheStore) {
  const auto path = dir / "lumo.prop";
  std::ofstream(path) << "vendor.both=file\nvendor.file.only=1\n";
  std::string error;
  EXPECT_TRUE(hostsim::loadPropertyFile(path.string(), &error)) << error;
  // The file first, then the single properties, which win.
  setenv("LUMO_PROPERTIES_FILE", path.c_str(), 1);
  setenv("LUMO_PROPS", "vendor.both=env; vendor.env.only = 2 ;;broken;vendor.x=3", 1);
  EXPECT_EQ(hostsim::reseedPropertiesFromEnvironment(),
            "LUMO_PROPS \"broken\": expected name=value");
  unsetenv("LUMO_PROPS");
  EXPECT_EQ(
      hostsim::formatProperties(),
      "[vendor.both]: [env]\n[vendor.env.only]: [2]\n[vendor.file.only]: [1]\n[vendor.x]: [3]\n");
  std::filesystem::remove(path);
  EXPECT_FALSE(hostsim::loadPropertyFile(path.string(), &error));
  EXPECT_NE(error.find(path.string() + ": cannot be opened"), std::string::npos) << error;
  EXPECT_NE(hostsim::reseedPropertiesFromEnvironment().find(path.string()), std::string::npos);
  unsetenv("LUMO_PROPERTIES_FILE");
  EXPECT_TRUE(hostsim::allProperties().empty());
}

std::vector<std::string> linesOf(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::vector<std::string> out;
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

TEST_F(LogFiles, AndroidLinesHaveTheThreadtimeShapeAndCapturesSeeEveryLine) {
  hostsim::LogCapture capture;
  ASSERT_TRUE(hostsim::setAndroidLogFile((dir / "logcat.txt").string()));
  __android_log_print(ANDROID_LOG_INFO, "ab", "hello %d", 5);
  __android_log_print(ANDROID_LOG_ERROR, "VyAlgoEngine", "two\nlines\n\n");
  __android_log_print(ANDROID_LOG_SILENT, "TagOfEight", "%s", "x");
  // Neither the minimum priority nor a dropping destination hides lines from captures.
  hostsim::setAndroidLogMinPriority(ANDROID_LOG_WARN);
  __android_log_print(ANDROID_LOG_INFO, "t", "quiet");
  __android_log_print(ANDROID_LOG_WARN, "t", "loud");  // at the minimum
  ASSERT_TRUE(hostsim::setAndroidLogFile("-"));
  __android_log_print(ANDROID_LOG_ERROR, "t", "dropped");
  EXPECT_EQ(capture.androidMessages(), (std::vector<std::string>{"hello 5", "two\nlines\n\n", "x",
                                                                 "quiet", "loud", "dropped"}));
  EXPECT_FALSE(hostsim::setAndroidLogFile((dir / "missing" / "x.txt").string()));
  // MM-DD HH:MM:SS.mmm, " %5d %5d " process and thread ids, letter, tag padded to 8, message.
  const std::regex stamp(R"((0\d|1[0-2])-[0-3]\d ([01]\d|2[0-3]):[0-5]\d:[0-5]\d\.\d{3})");
  char ids[32];
  std::snprintf(ids, sizeof ids, " %5d %5d ", ::getpid(), static_cast<int>(syscall(SYS_gettid)));
  const std::vector<std::string> tails = {"I ab      : hello 5", "E VyAlgoEngine: two",
                                          "E VyAlgoEngine: lines", "S TagOfEight: x",
                                          "W t       : loud"};
  const auto lines = linesOf(dir / "logcat.txt");
  ASSERT_EQ(lines.size(), tails.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_TRUE(std::regex_match(lines[i].substr(0, 18), stamp)) << lines[i];
    EXPECT_EQ(lines[i].substr(18), ids + tails[i]);
  }
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
  using vydebug::Log;
  EXPECT_EQ(Log::getFileName("/src/lumo_filter/paramUtil.cpp") + "|" +
                Log::getFileName("/a/b.d/f") + "|" + Log::getFileName("x.cpp") + "|" +
                Log::getFileName(nullptr),
            "lumo_filter/paramUtil|b.d/f|x|");
}

}  // namespace
