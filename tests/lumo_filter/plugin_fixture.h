// White-box fixture: plugin objects linked in directly, a recording filter
// SDK, captured logs and switches that each test sets and restores.
#pragma once

#include <gtest/gtest.h>
#include <hostsim/filter_factory.h>
#include <hostsim/log_sink.h>
#include <hostsim/properties.h>
#include <hostsim/recording_filter.h>

#include <memory>
#include <string>
#include <vector>

#include "VyLumoFilterPlugin.h"
#include "plugin_test_support.h"

// Reaches the plugin's private state (declared a friend by the plugin).
struct LumoPluginTestAccess {
  static const param_trigger_t& info(const VyLumoFilterPlugin& p) { return p.m_triggerInfo; }
  static const std::string& imageName(const VyLumoFilterPlugin& p) { return p.m_imageName; }
  static bool bypass(const VyLumoFilterPlugin& p) { return p.m_bypass; }
  static bool filterValid(const VyLumoFilterPlugin& p) { return p.m_filterValid; }
  static bool hasFilter(const VyLumoFilterPlugin& p) { return p.m_filter != nullptr; }
  static bool hasExifFile(const VyLumoFilterPlugin& p) { return p.m_exifFile != nullptr; }
  static bool hasBlocks(const VyLumoFilterPlugin& p) { return p.m_lut || p.m_shading; }
};
using Access = LumoPluginTestAccess;
using lumotest::PluginLine;
using Lines = std::vector<PluginLine>;

class PluginFixture : public ::testing::Test {
protected:
  void SetUp() override {
    lumotest::prepareDevice();
    hostsim::setAndroidLogFile("-");
    hostsim::setFilterFaults({});
    hostsim::resetCreateFilterCalls();
  }

  void TearDown() override {
    for (auto& p : plugins) p->destroy();
    plugins.clear();
    hostsim::setFilterFaults({});
    hostsim::clearProperties();
    VyLumoFilterPlugin::m_algoForceEnable = 0;
    VyLumoFilterPlugin::m_algoBypassMode = 0;
    VyLumoFilterPlugin::m_algoDumpMode = 0;
    VyLumoFilterPlugin::m_debugMode = 0;
  }

  // 0 offline snapshot, 1 real-time preview.
  VyLumoFilterPlugin& makePlugin(uint32_t mode) {
    plugins.push_back(std::make_unique<VyLumoFilterPlugin>());
    vyalgo2::CreateInfo info;
    info.processMode = mode;
    plugins.back()->initialize(&info, vyalgo2::VyaNodeInterface{});
    return *plugins.back();
  }

  // Runs one frame with a cleared journal; returns the plugin's lines.
  Lines process(VyLumoFilterPlugin& plugin, lumotest::Frame& frame) {
    journal->clear();
    hostsim::LogCapture capture;
    EXPECT_EQ(plugin.processRequest(&frame.request), 0);
    return lumotest::pluginLines(capture);
  }

  std::shared_ptr<hostsim::FilterJournal> journal = std::make_shared<hostsim::FilterJournal>();
  hostsim::FilterFactoryOverride factory{[j = journal](videoprocess::VideoFormat format, bool) {
    return new hostsim::RecordingFilter(format, j);
  }};
  std::vector<std::unique_ptr<VyLumoFilterPlugin>> plugins;
};
