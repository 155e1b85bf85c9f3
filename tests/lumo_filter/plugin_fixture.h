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
  static const param_trigger_t& triggerInfo(const VyLumoFilterPlugin& p) { return p.m_triggerInfo; }
  static const std::string& imageName(const VyLumoFilterPlugin& p) { return p.m_imageName; }
  static bool bypass(const VyLumoFilterPlugin& p) { return p.m_bypass; }
  static bool filterValid(const VyLumoFilterPlugin& p) { return p.m_filterValid; }
  static bool hasFilter(const VyLumoFilterPlugin& p) { return p.m_filter != nullptr; }
  static bool hasExifFile(const VyLumoFilterPlugin& p) { return p.m_exifFile != nullptr; }
  static const std::string& instanceName(const VyLumoFilterPlugin& p) { return p.m_instanceName; }
  static param_shading_float_t* shading(VyLumoFilterPlugin& p) { return p.m_shading.get(); }
  static param_lut_t* lut(VyLumoFilterPlugin& p) { return p.m_lut.get(); }
  static void setFrame(VyLumoFilterPlugin& p, int32_t width, int32_t height, uint32_t frameNum) {
    p.m_width = width;
    p.m_height = height;
    p.m_frameNum = frameNum;
  }
  static void setTriggerChanged(VyLumoFilterPlugin& p, bool changed) {
    p.m_triggerChanged = changed;
  }
  static void setImageName(VyLumoFilterPlugin& p, const std::string& name) { p.m_imageName = name; }
};
using Access = LumoPluginTestAccess;

class PluginFixture : public ::testing::Test {
protected:
  void SetUp() override {
    lumotest::prepareDevice();
    hostsim::setAndroidLogFile("-");
    hostsim::setFilterFaults({});
    hostsim::resetCreateFilterCalls();
    journal = std::make_shared<hostsim::FilterJournal>();
    factory = std::make_unique<hostsim::FilterFactoryOverride>(
        [j = journal](videoprocess::VideoFormat format, bool) {
          return new hostsim::RecordingFilter(format, j);
        });
  }

  void TearDown() override {
    for (auto& p : plugins) p->destroy();
    plugins.clear();
    factory.reset();
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

  std::shared_ptr<hostsim::FilterJournal> journal;
  std::unique_ptr<hostsim::FilterFactoryOverride> factory;
  std::vector<std::unique_ptr<VyLumoFilterPlugin>> plugins;
};
