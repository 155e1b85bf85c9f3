// System properties: typed reads with defaults, the Android length rules,
// property files, command-line arguments and seeding from the environment.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hostsim/properties.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

class Properties : public ::testing::Test {
protected:
  void SetUp() override { hostsim::clearProperties(); }
  void TearDown() override { hostsim::clearProperties(); }
  static std::string get(const char* key, const char* fallback = "dflt") {
    char value[PROPERTY_VALUE_MAX];
    const int n = property_get(key, value, fallback);
    EXPECT_EQ(static_cast<size_t>(n), std::strlen(value));
    return value;
  }
  // A property file under the temporary directory holding `text`.
  static std::filesystem::path propertyFile(const std::string& name, const std::string& text) {
    const auto path =
        std::filesystem::temp_directory_path() / (name + std::to_string(::getpid()) + ".prop");
    std::ofstream(path) << text;
    return path;
  }
};

TEST_F(Properties, Int32ParsesOrFallsBack) {
  struct Case {
    const char* stored;  // null: unset
    int32_t expected;
  };
  const Case cases[] = {{nullptr, -7},
                        {"", -7},
                        {"42", 42},
                        {"-3", -3},
                        {"0x1F", 31},
                        {"010", 8},
                        {" 5", 5},
                        {"5 ", -7},
                        {"12abc", -7},
                        {"abc", -7},
                        {"2147483647", 2147483647},
                        {"2147483648", -7},
                        {"-2147483648", INT32_MIN},
                        {"-2147483649", -7},
                        {"99999999999999999999", -7}};
  for (const Case& c : cases) {
    hostsim::clearProperties();
    if (c.stored) {
      ASSERT_EQ(property_set("vendor.test.int", c.stored), 0);
    }
    EXPECT_EQ(property_get_int32("vendor.test.int", -7), c.expected)
        << (c.stored ? c.stored : "(unset)");
  }
}

TEST_F(Properties, GetReturnsValueOrDefault) {
  EXPECT_EQ(get("vendor.test.s"), "dflt");
  EXPECT_EQ(get("vendor.test.s", nullptr), "");
  ASSERT_EQ(property_set("vendor.test.s", ""), 0);
  EXPECT_EQ(get("vendor.test.s"), "dflt");  // empty counts as unset
  ASSERT_EQ(property_set("vendor.test.s", "night"), 0);
  EXPECT_EQ(get("vendor.test.s"), "night");
  EXPECT_EQ(get(nullptr), "dflt");
}

TEST_F(Properties, LongValuesFollowTheAndroidRules) {
  const std::string max(PROPERTY_VALUE_MAX - 1, 'a');
  const std::string over(PROPERTY_VALUE_MAX, 'b');
  const std::string longDefault(200, 'c');
  // Ordinary properties refuse values of 92 characters or more.
  EXPECT_EQ(property_set("vendor.test.max", max.c_str()), 0);
  EXPECT_EQ(get("vendor.test.max"), max);
  EXPECT_EQ(property_set("vendor.test.over", over.c_str()), -1);
  EXPECT_EQ(get("vendor.test.over"), "dflt");
  std::string error;
  EXPECT_FALSE(hostsim::setProperty("persist.vendor.test.over", over, &error));
  EXPECT_NE(error.find("92 characters long; at most 91"), std::string::npos) << error;
  // Read-only ones may be long; readers see the first 91 characters.
  EXPECT_TRUE(hostsim::setProperty("ro.test.long", over + over));
  EXPECT_EQ(hostsim::allProperties()["ro.test.long"].size(), 2u * PROPERTY_VALUE_MAX);
  EXPECT_EQ(get("ro.test.long"), std::string(PROPERTY_VALUE_MAX - 1, 'b'));
  // Defaults are truncated the same way.
  EXPECT_EQ(get("vendor.test.none", longDefault.c_str()), longDefault.substr(0, 91));
  // Names longer than the legacy 32-character key limit are fine.
  EXPECT_EQ(property_set("persist.vendor.camera.lumofilter.forceEnable", "2"), 0);
  EXPECT_EQ(property_get_int32("persist.vendor.camera.lumofilter.forceEnable", 0), 2);
}

TEST_F(Properties, ArgumentsAndNames) {
  struct Case {
    const char* argument;
    bool ok;
    const char* error;
  };
  const Case cases[] = {
      {"vendor.a=1", true, ""},
      {"vendor.b=x=y", true, ""},  // the value keeps later '='
      {"vendor.c=", true, ""},
      {"vendor.d", false, "expected name=value"},
      {"=1", false, "invalid property name"},
      {"vendor x=1", false, "invalid property name"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_EQ(hostsim::setPropertyArgument(c.argument, &error), c.ok) << c.argument;
    EXPECT_NE(error.find(c.error), std::string::npos) << c.argument << ": " << error;
  }
  EXPECT_EQ(get("vendor.b"), "x=y");
  EXPECT_EQ(hostsim::formatProperties(), "[vendor.a]: [1]\n[vendor.b]: [x=y]\n[vendor.c]: []\n");
}

TEST_F(Properties, TextInBothLineFormsWithCommentsAndBlanks) {
  const std::string text =
      "# switches\n"
      "\n"
      "persist.vendor.camera.lumofilter.debug=1\n"
      "  vendor.spaced  =  night  \r\n"
      "[persist.vendor.camera.lumofilter.lux]: [300]\n"
      "[vendor.empty]: []\n";
  std::string error;
  ASSERT_TRUE(hostsim::loadPropertyText(text, "props", &error)) << error;
  const std::map<std::string, std::string> expected = {
      {"persist.vendor.camera.lumofilter.debug", "1"},
      {"vendor.spaced", "night"},
      {"persist.vendor.camera.lumofilter.lux", "300"},
      {"vendor.empty", ""},
  };
  EXPECT_EQ(hostsim::allProperties(), expected);
}

TEST_F(Properties, BadLinesNameFileAndLineAndSetNothing) {
  struct Case {
    std::string text;
    std::string error;
  };
  const Case cases[] = {
      {"vendor.a=1\nno equals sign\n", "p.txt:2: expected name=value"},
      {"vendor.a=1\n\n# c\n[vendor.b] [2]\n", "p.txt:4: expected [name]: [value]"},
      {"[vendor.b]: 2\n", "p.txt:1: expected [name]: [value]"},
      {"bad name=1\n", "p.txt:1: invalid property name \"bad name\""},
      {"vendor.x=" + std::string(100, 'v') + "\n", "p.txt:1: value of vendor.x is 100"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_FALSE(hostsim::loadPropertyText(c.text, "p.txt", &error));
    EXPECT_EQ(error.substr(0, c.error.size()), c.error);
    EXPECT_TRUE(hostsim::allProperties().empty()) << c.text;
  }
}

TEST_F(Properties, FilesLoadAndMissingFilesAreReported) {
  const auto path = propertyFile("hostsim_props_", "vendor.from.file=7\n");
  std::string error;
  EXPECT_TRUE(hostsim::loadPropertyFile(path.string(), &error)) << error;
  EXPECT_EQ(property_get_int32("vendor.from.file", 0), 7);
  std::filesystem::remove(path);
  EXPECT_FALSE(hostsim::loadPropertyFile(path.string(), &error));
  EXPECT_NE(error.find(path.string() + ": cannot be opened"), std::string::npos) << error;
}

TEST_F(Properties, EnvironmentSeedsFileThenSingleProperties) {
  const auto path = propertyFile("hostsim_env_", "vendor.both=file\nvendor.file.only=1\n");
  setenv("LUMO_PROPERTIES_FILE", path.c_str(), 1);
  setenv("LUMO_PROPS", "vendor.both=env; vendor.env.only = 2 ;;broken;vendor.x=3", 1);
  const std::string problems = hostsim::reseedPropertiesFromEnvironment();
  unsetenv("LUMO_PROPERTIES_FILE");
  unsetenv("LUMO_PROPS");
  std::filesystem::remove(path);

  EXPECT_EQ(problems, "LUMO_PROPS \"broken\": expected name=value");
  const std::map<std::string, std::string> expected = {{"vendor.both", "env"},
                                                       {"vendor.file.only", "1"},
                                                       {"vendor.env.only", "2"},
                                                       {"vendor.x", "3"}};
  EXPECT_EQ(hostsim::allProperties(), expected);

  setenv("LUMO_PROPERTIES_FILE", "/nonexistent/lumo.prop", 1);
  EXPECT_NE(hostsim::reseedPropertiesFromEnvironment().find("/nonexistent/lumo.prop"),
            std::string::npos);
  unsetenv("LUMO_PROPERTIES_FILE");
  EXPECT_TRUE(hostsim::allProperties().empty());
}

}  // namespace
