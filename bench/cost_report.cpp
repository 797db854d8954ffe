// What whole requests cost, put together from single measured runs:
//
//   cost_report RUNS.jsonl OUT.json OUT.svg
//
// RUNS.jsonl has one line per run, as tools/measure-cost.sh writes it. Prints the table; OUT.json holds the same
// figures, OUT.svg a plot of the instructions over the size.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using nlohmann::ordered_json;

struct Run {
  double files = 0;
  double milliseconds = 0;
  double allocations = 0;
  double peakBytes = 0;
  std::optional<double> instructions;
  std::optional<double> simulatorInstructions;
};

// One workload at one size, by who took the snapshot.
struct Size {
  std::map<std::string, Run> runs;
  const Run* Find(const std::string& who) const {
    const auto found = runs.find(who);
    return found == runs.end() ? nullptr : &found->second;
  }
};

using Sizes = std::map<std::size_t, Size>;  // by n

struct Workload {
  std::string name;
  Sizes sizes;
};

std::optional<double> NumberIn(const ordered_json& run, const char* key) {
  return run.contains(key) ? std::optional(run.at(key).get<double>()) : std::nullopt;
}

// Workloads stay in the order of the runs.
std::vector<Workload> ReadRuns(const char* path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(std::string("cannot read ") + path);
  std::vector<Workload> workloads;
  for (std::string line; std::getline(file, line);) {
    const ordered_json json = ordered_json::parse(line);
    const std::string name = json.at("workload");
    auto workload = std::find_if(workloads.begin(), workloads.end(), [&](const auto& w) { return w.name == name; });
    if (workload == workloads.end()) workload = workloads.insert(workload, {name, {}});
    Run& run = workload->sizes[json.at("n").get<std::size_t>()].runs[json.at("who").get<std::string>()];
    run.files = json.at("files");
    run.milliseconds = json.at("milliseconds");
    run.allocations = json.at("allocations");
    run.peakBytes = json.at("peakBytes");
    run.instructions = NumberIn(json, "instructions");
    run.simulatorInstructions = NumberIn(json, "simulatorInstructions");
  }
  return workloads;
}

std::optional<double> Ratio(std::optional<double> a, std::optional<double> b) {
  return a && b && *b > 0 ? std::optional(*a / *b) : std::nullopt;
}

std::optional<double> InstructionsOf(const Size& size, const char* who) {
  const Run* run = size.Find(who);
  return run == nullptr ? std::nullopt : run->instructions;
}

// By what the cost of the requestor grows when n doubles, from the size before.
std::optional<double> Growth(const Sizes& sizes, Sizes::const_iterator at) {
  if (at == sizes.begin()) return std::nullopt;
  const auto before = std::prev(at);
  const std::optional<double> ratio =
      Ratio(InstructionsOf(at->second, "quiet"), InstructionsOf(before->second, "quiet"));
  if (!ratio) return std::nullopt;
  return std::pow(*ratio, 1 / std::log2(static_cast<double>(at->first) / static_cast<double>(before->first)));
}

// Without those of the simulated host.
std::optional<double> OwnInstructions(const Run& run) {
  if (!run.instructions || !run.simulatorInstructions) return std::nullopt;
  return *run.instructions - *run.simulatorInstructions;
}

// The figures of one line of the table; absent where they were not measured.
ordered_json FiguresOf(const Workload& workload, Sizes::const_iterator at) {
  const Size& size = at->second;
  const Run* floor = size.Find("floor");
  const Run* quiet = size.Find("quiet");
  if (floor == nullptr || quiet == nullptr) throw std::runtime_error(workload.name + ": runs are missing");
  ordered_json figures = {{"workload", workload.name}, {"n", at->first}, {"files", quiet->files}};
  const auto set = [&](const char* key, std::optional<double> value) {
    if (value) figures[key] = *value;
  };
  set("floorMilliseconds", floor->milliseconds);
  set("milliseconds", quiet->milliseconds);
  set("floorInstructions", floor->instructions);
  set("instructions", quiet->instructions);
  set("instructionsToFloor", Ratio(quiet->instructions, floor->instructions));
  set("growthPerDoubling", Growth(workload.sizes, at));
  set("simulatorShare", Ratio(quiet->simulatorInstructions, quiet->instructions));
  set("ownInstructionsToFloors", Ratio(OwnInstructions(*quiet), OwnInstructions(*floor)));
  set("loggedToFloor", Ratio(InstructionsOf(size, "logged"), floor->instructions));
  set("floorAllocationsPerFile", floor->allocations / floor->files);
  set("allocationsPerFileAboveFloor", (quiet->allocations - floor->allocations) / quiet->files);
  if (const Run* own = size.Find("memory")) set("ownPeakBytesPerFile", own->peakBytes / own->files);
  set("floorPeakBytesPerFile", floor->peakBytes / floor->files);
  set("peakBytesPerFile", quiet->peakBytes / quiet->files);
  return figures;
}

ordered_json AllFigures(const std::vector<Workload>& workloads) {
  ordered_json all = ordered_json::array();
  for (const Workload& workload : workloads) {
    for (auto at = workload.sizes.begin(); at != workload.sizes.end(); ++at) all.push_back(FiguresOf(workload, at));
  }
  return all;
}

// ---- Table ----

struct Column {
  const char* key;
  const char* heading;
  int decimals;
  double scale;
};

constexpr std::array kColumns = {
    Column{"n", "n", 0, 1},
    Column{"files", "files", 0, 1},
    Column{"floorMilliseconds", "floor ms", 1, 1},
    Column{"milliseconds", "ms", 1, 1},
    Column{"floorInstructions", "floor Mi", 1, 1e-6},
    Column{"instructions", "Mi", 1, 1e-6},
    Column{"instructionsToFloor", ": floor", 2, 1},
    Column{"growthPerDoubling", "growth", 2, 1},
    Column{"simulatorShare", "host %", 0, 100},
    Column{"ownInstructionsToFloors", "own", 2, 1},
    Column{"loggedToFloor", "logged", 2, 1},
    Column{"floorAllocationsPerFile", "floor al", 1, 1},
    Column{"allocationsPerFileAboveFloor", "above", 2, 1},
    Column{"ownPeakBytesPerFile", "KiB", 2, 1.0 / 1024},
    Column{"peakBytesPerFile", "with host", 2, 1.0 / 1024},
};

void PrintTable(const ordered_json& all) {
  constexpr int kWidth = 10;
  std::printf("%-11s", "workload");
  for (const Column& column : kColumns) std::printf("%*s", kWidth, column.heading);
  std::string last;
  for (const ordered_json& figures : all) {
    const std::string name = figures.at("workload");
    std::printf("\n%-11s", name == last ? "" : name.c_str());
    last = name;
    for (const Column& column : kColumns) {
      const std::optional<double> value = NumberIn(figures, column.key);
      value ? std::printf("%*.*f", kWidth, column.decimals, *value * column.scale) : std::printf("%*s", kWidth, "-");
    }
  }
  std::puts(
      "\n\nfloor     a bare requestor that makes the same calls\n"
      "Mi        millions of instructions of the requestor, its log off; growth: of these per doubling of n\n"
      ": floor   the requestor's to the floor's; logged: with the log at information level; own: without the "
      "simulated\n"
      "          host's part on both sides; host %: that part of the requestor's\n"
      "al, above allocations per file: the floor's, and how many more the requestor makes\n"
      "KiB       peak memory per file that the requestor asks for; with host: the simulated host's included");
}

// ---- Plot ----

// What a curve looks like in light and in dark, and the mark of its points: an SVG path around the origin. Colour alone
// tells nothing apart.
struct Manner {
  const char* light;
  const char* dark;
  const char* mark;
};

constexpr std::array kManners = {
    Manner{"#1b6ca8", "#6cb6ff", "M-4,-4H4V4H-4Z"},
    Manner{"#c0392b", "#ff8a7a", "M0,-5L5,4H-5Z"},
    Manner{"#8e44ad", "#d2a8ff", "M0,-6L6,0L0,6L-6,0Z"},
    Manner{"#1e8449", "#5fd38d", "M0,5L5,-4H-5Z"},
    Manner{"#9a5f00", "#e3b341", "M-4,0A4,4 0 1 0 4,0A4,4 0 1 0 -4,0Z"},
    Manner{"#111111", "#f0f0f0", "M-5,-2H-2V-5H2V-2H5V2H2V5H-2V2H-5Z"},
    Manner{"#5d6d6e", "#b3bfc0", "M-6,-3H6V3H-6Z"},
};

using Points = std::vector<std::pair<double, double>>;

// A workload's requestor, or its floor.
struct Curve {
  std::string name;
  std::size_t manner;
  bool isFloor;
  Points points;
};

// "74 million"
std::string Millions(double instructions) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.0f million", instructions / 1e6);
  return text.data();
}

// Logarithmic on both axes.
class Plot {
 public:
  Plot(std::ostream& out, std::vector<Curve> curves) : out_(out), curves_(std::move(curves)) {
    for (const Curve& curve : curves_) {
      for (const auto& [n, instructions] : curve.points) Include(n, instructions);
    }
    if (sizes_.size() < 2) throw std::runtime_error("too few sizes for a plot");
  }

  void Write() const {
    out_ << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 860 520" font-family="sans-serif" font-size="13" )"
         << "role=\"img\" aria-labelledby=\"title desc\">\n"
         << "<title id=\"title\">Instructions of a snapshot request</title>\n<desc id=\"desc\">" << Described()
         << "</desc>\n";
    Style();
    out_ << R"(<rect class="paper" width="860" height="520"/>)" << '\n';
    Axes();
    for (const Curve& curve : curves_) Draw(curve);
    Labels();
    out_ << "</svg>\n";
  }

 private:
  static constexpr double kLeft = 70;
  static constexpr double kRight = 660;
  static constexpr double kTop = 45;
  static constexpr double kBottom = 455;
  static constexpr double kLabels = 700;
  static constexpr double kLabelHeight = 17;

  void Include(double n, double instructions) {
    left_ = std::min(left_, n);
    right_ = std::max(right_, n);
    bottom_ = std::min(bottom_, instructions);
    top_ = std::max(top_, instructions);
    sizes_.insert(n);
  }

  std::string Described() const {
    std::string text =
        "Both axes are logarithmic. The curve of each requestor is solid with filled marks, that of its floor, a bare "
        "requestor that makes the same calls, dashed with empty ones.";
    for (const Curve& curve : curves_) {
      text += " " + Name(curve) + ": " + Millions(curve.points.front().second) +
              " instructions at n = " + std::to_string(std::lround(curve.points.front().first)) + ", " +
              Millions(curve.points.back().second) + " at " + std::to_string(std::lround(curve.points.back().first)) +
              ".";
    }
    return text;
  }

  void Style() const {
    out_ << "<style>\n"
            ".paper{fill:#fff}text{fill:#222}.grid{stroke:#ddd}.axis{stroke:#333}\n"
            "polyline{fill:none;stroke-width:2}.floor polyline{stroke-dasharray:5 4}.floor path{fill:#fff}\n";
    for (std::size_t i = 0; i < kManners.size(); ++i) Colour(i, kManners[i].light);
    out_ << "@media (prefers-color-scheme: dark){\n"
            ".paper,.floor path{fill:#16181c}text{fill:#e6e6e6}.grid{stroke:#3a3f47}.axis{stroke:#aaa}\n";
    for (std::size_t i = 0; i < kManners.size(); ++i) Colour(i, kManners[i].dark);
    out_ << "}\n</style>\n";
  }
  void Colour(std::size_t manner, const char* colour) const {
    const std::string name = ".m" + std::to_string(manner);
    out_ << name << "{stroke:" << colour << "}.requestor" << name << " path{fill:" << colour << "}\n";
  }

  // A line for every power of ten, and the sizes that were measured.
  void Axes() const {
    const auto highest = std::lround(std::floor(std::log10(top_)));
    for (auto power = std::lround(std::ceil(std::log10(bottom_))); power <= highest; ++power) {
      const double y = Y(std::pow(10, power));
      Line(kLeft, y, kRight, y, "grid");
      Text(kLeft - 8, y + 4, "end", Power(power));
    }
    for (const double n : sizes_) {
      Line(X(n), kTop, X(n), kBottom, "grid");
      Text(X(n), kBottom + 18, "middle", std::to_string(std::lround(n)));
    }
    Line(kLeft, kBottom, kRight, kBottom, "axis");
    Line(kLeft, kTop, kLeft, kBottom, "axis");
    Text((kLeft + kRight) / 2, kBottom + 42, "middle", "n: databases, machines or files");
    Text(kLeft, kTop - 14, "start",
         "instructions of one request: requestor (solid, filled marks) and floor (dashed, empty marks)");
  }

  void Draw(const Curve& curve) const {
    Begin(curve);
    out_ << "<polyline points=\"";
    for (const auto& [n, instructions] : curve.points) out_ << X(n) << ',' << Y(instructions) << ' ';
    out_ << "\"/>";
    for (const auto& [n, instructions] : curve.points) Mark(curve, X(n), Y(instructions));
    out_ << "</g>\n";
  }

  // Each curve's name beside its end, as near to it as the others' allow, with its mark and a line to it.
  void Labels() const {
    std::vector<std::pair<double, const Curve*>> ends;
    for (const Curve& curve : curves_) ends.emplace_back(Y(curve.points.back().second), &curve);
    std::sort(ends.begin(), ends.end());
    const double lowest = kBottom - kLabelHeight * static_cast<double>(ends.size() - 1);
    double y = 0;
    for (std::size_t i = 0; i < ends.size(); ++i) {
      const auto& [end, curve] = ends[i];
      // Room for those that follow.
      y = std::max(y, std::min(end, lowest + kLabelHeight * static_cast<double>(i)));
      Line(X(curve->points.back().first) + 6, end, kLabels - 10, y, "grid");
      Begin(*curve);
      Mark(*curve, kLabels, y);
      out_ << "</g>\n";
      Text(kLabels + 12, y + 4, "start", Name(*curve));
      y += kLabelHeight;
    }
  }

  static std::string Name(const Curve& curve) { return curve.name + (curve.isFloor ? " floor" : ""); }

  void Begin(const Curve& curve) const {
    out_ << "<g class=\"" << (curve.isFloor ? "floor" : "requestor") << " m" << curve.manner << "\">";
  }
  void Mark(const Curve& curve, double x, double y) const {
    out_ << "<path transform=\"translate(" << x << ',' << y << ")\" d=\"" << kManners[curve.manner].mark << "\"/>";
  }

  static double Between(double value, double low, double high) {
    return (std::log10(value) - std::log10(low)) / (std::log10(high) - std::log10(low));
  }
  double X(double n) const { return kLeft + (kRight - kLeft) * Between(n, left_, right_); }
  double Y(double instructions) const { return kBottom - (kBottom - kTop) * Between(instructions, bottom_, top_); }

  static std::string Power(long power) {
    return "10<tspan dy=\"-5\" font-size=\"10\">" + std::to_string(power) + "</tspan>";
  }
  void Line(double x1, double y1, double x2, double y2, const char* kind) const {
    out_ << "<line class=\"" << kind << "\" x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2 << "\" y2=\"" << y2
         << "\"/>\n";
  }
  void Text(double x, double y, const char* anchor, const std::string& text) const {
    out_ << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\">" << text << "</text>\n";
  }

  std::ostream& out_;
  std::vector<Curve> curves_;
  std::set<double> sizes_;
  double left_ = 1e300;
  double right_ = 0;
  double bottom_ = 1e300;
  double top_ = 0;
};

Points PointsOf(const Workload& workload, const char* who) {
  Points points;
  for (const auto& [n, size] : workload.sizes) {
    if (const auto instructions = InstructionsOf(size, who)) points.emplace_back(static_cast<double>(n), *instructions);
  }
  return points;
}

void WritePlot(const std::vector<Workload>& workloads, std::ostream& out) {
  std::vector<Curve> curves;
  for (std::size_t i = 0; i < workloads.size(); ++i) {
    for (const char* who : {"floor", "quiet"}) {
      Points points = PointsOf(workloads[i], who);
      const bool isFloor = std::string_view(who) == "floor";
      if (!points.empty()) curves.push_back({workloads[i].name, i % kManners.size(), isFloor, std::move(points)});
    }
  }
  Plot(out, std::move(curves)).Write();
}

void Report(const char* runs, const char* json, const char* svg) {
  const std::vector<Workload> workloads = ReadRuns(runs);
  const ordered_json all = AllFigures(workloads);
  PrintTable(all);
  std::ofstream jsonFile(json);
  jsonFile << all.dump(1) << '\n';
  std::ofstream svgFile(svg);
  WritePlot(workloads, svgFile);
  if (!jsonFile.flush() || !svgFile.flush()) throw std::runtime_error("cannot write the report");
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kArguments = 4;
  if (argc != kArguments) {
    std::cerr << "usage: cost_report RUNS.jsonl OUT.json OUT.svg\n";
    return 2;
  }
  try {
    Report(argv[1], argv[2], argv[3]);
  } catch (const std::exception& error) {
    std::cerr << "cost_report: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
