// The lux and CCT bracket search, as a table: exact bounds, gaps, clamp
// below, failure above, empty list, touching and unsorted ranges.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "paramTrigger.h"
#include "param_fixtures.h"

namespace {

constexpr uint16_t kUntouched = 999;

struct SearchRow {
  uint16_t value;
  int previous;  // expected index into the list, -1 for a failed search
  int element;
};

// Runs the CCT instance and returns the list positions of the two outputs
// (found by their lut index, which equals the position in these lists).
void runCctTable(std::vector<param_cct_t> list, const std::vector<SearchRow>& rows) {
  for (uint16_t i = 0; i < list.size(); i++) list[i].param_cct_lut_index = i;
  for (const SearchRow& row : rows) {
    hostsim::LogCapture capture;
    param_cct_t previous{kUntouched, kUntouched, kUntouched};
    param_cct_t element{kUntouched, kUntouched, kUntouched};
    ParamTrigger::findElementAndPrevious<param_cct_t>(
        list.data(), static_cast<unsigned short>(list.size()), row.value, previous, element);
    SCOPED_TRACE("value " + std::to_string(row.value));
    const std::vector<std::string> lines = lumotest::messages(capture);
    if (row.element < 0) {  // both outputs untouched, one error line and nothing else
      EXPECT_EQ(previous.param_cct_lut_index, kUntouched);
      EXPECT_EQ(element.param_cct_lut_index, kUntouched);
      EXPECT_EQ(element.param_start, kUntouched);
      EXPECT_EQ(lumotest::errorMessages(capture), lines);
      EXPECT_EQ(lines, std::vector<std::string>{"[LumoFilter] not found lux or cct!!!!!!!!!!!"});
      continue;
    }
    EXPECT_EQ(previous.param_cct_lut_index, row.previous);
    EXPECT_EQ(element.param_cct_lut_index, row.element);
    const param_cct_t& p = list[static_cast<size_t>(row.previous)];
    const param_cct_t& e = list[static_cast<size_t>(row.element)];
    EXPECT_EQ(previous.param_start, p.param_start);
    EXPECT_EQ(element.param_end, e.param_end);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "[LumoFilter] left start=" + std::to_string(p.param_start) +
                             ", end=" + std::to_string(p.param_end),
                         "[LumoFilter] right start=" + std::to_string(e.param_start) +
                             ", end=" + std::to_string(e.param_end)}));
    EXPECT_TRUE(lumotest::errorMessages(capture).empty());
  }
}

TEST(BracketSearch, ExactBoundsGapsClampBelowFailureAbove) {
  lumotest::quietLogs();
  // 100..200, gap, 250..300, then 300..400 touching it.
  runCctTable({{100, 200, 0}, {250, 300, 0}, {300, 400, 0}},
              {
                  {0, 0, 0},       // below the first record: clamps to it
                  {99, 0, 0},      //
                  {100, 0, 0},     // lower bound
                  {150, 0, 0},     // inside
                  {200, 0, 0},     // upper bound
                  {201, 0, 1},     // gap: previous record and the next one
                  {249, 0, 1},     //
                  {250, 1, 1},     // lower bound of the second
                  {300, 1, 1},     // touching: the first record reaching 300 wins
                  {301, 2, 2},     //
                  {400, 2, 2},     // upper bound of the last
                  {401, -1, -1},   // above every record: failure
                  {65535, -1, -1}  //
              });
  // Unsorted: the first record reaching the value wins. 150: record 1 reaches
  // it first and 150 < 500, so previous is record 0; record 2 ends at 200.
  runCctTable({{100, 120, 0}, {500, 600, 0}, {100, 200, 0}},
              {{110, 0, 0}, {150, 0, 1}, {550, 1, 1}, {601, -1, -1}});
  runCctTable({{5000, 5000, 0}}, {{0, 0, 0}, {5000, 0, 0}, {5001, -1, -1}});
  runCctTable({}, {{0, -1, -1}, {65535, -1, -1}});
}

TEST(BracketSearch, LuxInstanceCopiesWholeRecords) {
  lumotest::quietLogs();
  param_cct_t cctsA[1] = {{1, 2, 3}};
  param_cct_t cctsB[2] = {{4, 5, 6}, {7, 8, 9}};
  param_lux_t list[2] = {{10, 20, cctsA, 1}, {40, 50, cctsB, 2}};
  hostsim::LogCapture capture;
  param_lux_t previous{}, element{};
  ParamTrigger::findElementAndPrevious<param_lux_t>(list, 2, 30, previous, element);
  EXPECT_EQ(previous.start, 10);
  EXPECT_EQ(previous.end, 20);
  EXPECT_EQ(previous.param_cct, cctsA);
  EXPECT_EQ(previous.param_cct_count, 1);
  EXPECT_EQ(element.param_cct, cctsB);
  EXPECT_EQ(element.param_cct_count, 2);
  EXPECT_EQ(lumotest::messages(capture),
            (std::vector<std::string>{"[LumoFilter] left start=10, end=20",
                                      "[LumoFilter] right start=40, end=50"}));
  // Error statements name the search as their function.
  EXPECT_EQ(lumotest::functions(capture),
            (std::vector<std::string>{"findElementAndPrevious", "findElementAndPrevious"}));
  // A null list with count 0 would crash if it were read.
  ParamTrigger::findElementAndPrevious<param_lux_t>(nullptr, 0, 10, previous, element);
  EXPECT_EQ(previous.param_cct, cctsA);
  EXPECT_EQ(element.param_cct_count, 2);
  EXPECT_EQ(lumotest::errorMessages(capture).size(), 1u);
}

}  // namespace
