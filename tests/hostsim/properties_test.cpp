// System properties: typed reads with defaults, the Android length rules,
// property files, command-line arguments and seeding from the environment.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hostsim/properties.h>

#include <cstring>

#include "support.h"

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
};

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
  // Names longer than the legacy 32-character key limit are fine.
  EXPECT_EQ(property_set("persist.vendor.camera.lumofilter.forceEnable", "2"), 0);
  EXPECT_EQ(property_get_int32("persist.vendor.camera.lumofilter.forceEnable", 0), 2);
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
  const auto path = hostsim_test::freshTestFolder("hostsim_props_") / "lumo.prop";
  std::ofstream(path) << "vendor.both=file\nvendor.file.only=1\n";
  std::string error;
  EXPECT_TRUE(hostsim::loadPropertyFile(path.string(), &error)) << error;
  EXPECT_EQ(property_get_int32("vendor.file.only", 0), 1);
  // The file first, then the single properties, which win.
  setenv("LUMO_PROPERTIES_FILE", path.c_str(), 1);
  setenv("LUMO_PROPS", "vendor.both=env; vendor.env.only = 2 ;;broken;vendor.x=3", 1);
  EXPECT_EQ(hostsim::reseedPropertiesFromEnvironment(),
            "LUMO_PROPS \"broken\": expected name=value");
  unsetenv("LUMO_PROPS");
  EXPECT_EQ(
      hostsim::formatProperties(),
      "[vendor.both]: [env]\n[vendor.env.only]: [2]\n[vendor.file.only]: [1]\n[vendor.x]: [3]\n");
  std::filesystem::remove_all(path.parent_path());
  EXPECT_FALSE(hostsim::loadPropertyFile(path.string(), &error));
  EXPECT_NE(error.find(path.string() + ": cannot be opened"), std::string::npos) << error;
  EXPECT_NE(hostsim::reseedPropertiesFromEnvironment().find(path.string()), std::string::npos);
  unsetenv("LUMO_PROPERTIES_FILE");
  EXPECT_TRUE(hostsim::allProperties().empty());
}

}  // namespace
