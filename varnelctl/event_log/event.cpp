#include "varnelctl/event_log/event.h"

#include <array>
#include <boost/property_tree/xml_parser.hpp>
#include <sstream>
#include <utility>

#include "simulator/machine/utc_time.h"

namespace varnelctl {
namespace {

using Tree = boost::property_tree::ptree;

std::vector<std::string> TextsOf(const Tree& data) {
  std::vector<std::string> texts;
  for (const auto& [name, element] : data) {
    if (name == "Data") texts.push_back(element.data());
  }
  return texts;
}

void Read(const Tree& event, Event& result) {
  const Tree none;
  const Tree& system = event.get_child("System", none);
  result.source = system.get("Provider.<xmlattr>.Name", "");
  result.id = system.get("EventID", 0u);
  result.level = system.get("Level", 0u);
  result.record = system.get("EventRecordID", 0ull);
  result.computer = system.get("Computer", "");
  result.time = varnel::simulator::ParseUtc(system.get("TimeCreated.<xmlattr>.SystemTime", "")).value_or(0);
  result.texts = TextsOf(event.get_child("EventData", none));
}

}  // namespace

Event ParseEvent(std::string xml) {
  Event event;
  try {
    std::istringstream stream(xml);
    Tree tree;
    boost::property_tree::read_xml(stream, tree);
    Read(tree.get_child("Event", Tree()), event);
  } catch (const boost::property_tree::ptree_error&) {
    // Its XML is there all the same.
  }
  event.xml = std::move(xml);
  return event;
}

std::string LevelName(unsigned level) {
  constexpr std::array<std::string_view, 6> kNames = {"always",  "critical",    "error",
                                                      "warning", "information", "verbose"};
  return level < kNames.size() ? std::string(kNames[level]) : "level " + std::to_string(level);
}

}  // namespace varnelctl
