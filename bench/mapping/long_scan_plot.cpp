#include "long_scan_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>

namespace mapura::bench {

namespace {

const cv::Scalar kInk(40, 40, 40), kGrid(225, 225, 225), kRss(180, 90, 20), kMap(40, 140, 40), kCpu(30, 60, 200),
    kBudget(0, 150, 230);

// A panel: the rectangle it fills and the value ranges it shows.
struct Panel {
  cv::Rect area;
  double t_max, y_max;
  cv::Point at(double t, double y) const {
    return {area.x + int(std::lround(area.width * t / t_max)),
            area.y + area.height - int(std::lround(area.height * std::min(y, y_max) / y_max))};
  }
};

double niceStep(double range) {
  const double raw = range / 5, p = std::pow(10, std::floor(std::log10(raw)));
  for (double m : {1.0, 2.0, 5.0, 10.0})
    if (raw <= m * p) return m * p;
  return 10 * p;
}

void text(cv::Mat& img, const std::string& s, cv::Point p, const cv::Scalar& colour, double scale = 0.5) {
  cv::putText(img, s, p, cv::FONT_HERSHEY_SIMPLEX, scale, colour, 1, cv::LINE_AA);
}

void axes(cv::Mat& img, const Panel& p, const std::string& unit) {
  const double ys = niceStep(p.y_max), ts = niceStep(p.t_max);
  for (double y = 0; y <= p.y_max + 1e-9; y += ys) {
    cv::line(img, p.at(0, y), p.at(p.t_max, y), kGrid);
    std::ostringstream label;
    label << y;
    text(img, label.str(), p.at(0, y) + cv::Point(-55, 5), kInk, 0.45);
  }
  for (double t = 0; t <= p.t_max + 1e-9; t += ts) {
    cv::line(img, p.at(t, 0), p.at(t, p.y_max), kGrid);
    std::ostringstream label;
    label << t;
    text(img, label.str(), p.at(t, 0) + cv::Point(-8, 20), kInk, 0.45);
  }
  cv::rectangle(img, p.area, kInk);
  text(img, unit, {p.area.x - 55, p.area.y - 10}, kInk, 0.45);
}

void curve(cv::Mat& img, const Panel& p, const LongScanResult& r, const std::function<double(const LongScanSample&)>& y,
           const cv::Scalar& colour) {
  for (size_t i = 1; i < r.samples.size(); ++i)
    cv::line(img, p.at(r.samples[i - 1].t_s / 60, y(r.samples[i - 1])), p.at(r.samples[i].t_s / 60, y(r.samples[i])),
             colour, 2, cv::LINE_AA);
}

const LongScanSample& atBudget(const LongScanResult& r) {
  for (const LongScanSample& s : r.samples)
    if (r.budget_reached_s >= 0 && s.t_s >= r.budget_reached_s) return s;
  return r.samples.front();
}
double rssAtBudget(const LongScanResult& r) { return atBudget(r).rss_mb; }
size_t keyframesAtBudget(const LongScanResult& r) { return atBudget(r).keyframes; }

}  // namespace

bool plotLongScan(const LongScanResult& r, const std::string& title, const std::string& path) {
  if (r.samples.size() < 2) return false;
  cv::Mat img(820, 1280, CV_8UC3, cv::Scalar::all(255));
  const double t_max = std::max(r.samples.back().t_s / 60, 1e-3);
  double mem_max = 1, cpu_max = 1;
  for (const LongScanSample& s : r.samples) {
    mem_max = std::max({mem_max, s.rss_mb, s.map_mb});
    cpu_max = std::max(cpu_max, s.cpu_ms);
  }
  // Headroom above the curves for the legend.
  const auto top = [](double v) { return niceStep(v) * std::ceil(v / niceStep(v)); };
  const Panel memory{{90, 70, 1150, 420}, t_max, top(mem_max * 1.4)};
  const Panel cpu{{90, 560, 1150, 200}, t_max, top(cpu_max * 1.3)};
  text(img, title, {90, 35}, kInk, 0.6);
  axes(img, memory, "MB");
  axes(img, cpu, "ms");
  text(img, "minutes", {1170, 800}, kInk, 0.45);
  if (r.budget_reached_s >= 0) {
    for (const Panel* p : {&memory, &cpu})
      cv::line(img, p->at(r.budget_reached_s / 60, 0), p->at(r.budget_reached_s / 60, p->y_max), kBudget, 2);
    text(img, "map budget reached", memory.at(r.budget_reached_s / 60, 0) + cv::Point(6, -30), kBudget);
  }
  curve(
      img, memory, r, [](const LongScanSample& s) { return s.rss_mb; }, kRss);
  curve(
      img, memory, r, [](const LongScanSample& s) { return s.map_mb; }, kMap);
  curve(
      img, cpu, r, [](const LongScanSample& s) { return s.cpu_ms; }, kCpu);
  char legend[160];
  std::snprintf(legend, sizeof legend,
                "resident memory of the process (RSS): %.0f MB at the budget, %.0f MB at the end", rssAtBudget(r),
                r.samples.back().rss_mb);
  text(img, legend, {110, 100}, kRss);
  std::snprintf(legend, sizeof legend, "map memory (TSDF blocks, meshes, texture images): %.1f MB at the end",
                r.samples.back().map_mb);
  text(img, legend, {110, 125}, kMap);
  std::snprintf(legend, sizeof legend, "tracking keyframes: %zu at the budget, %zu at the end", keyframesAtBudget(r),
                r.samples.back().keyframes);
  text(img, legend, {110, 150}, kInk);
  text(img, "CPU time per frame, all threads", {110, 585}, kCpu);
  return cv::imwrite(path, img);
}

bool readLongScanCsv(const std::string& path, LongScanResult& r) {
  std::ifstream in(path);
  std::string line;
  if (!std::getline(in, line)) return false;
  // Columns by the names of the header line, so that files written before a column was added read.
  std::vector<std::string> names;
  std::istringstream header(line);
  for (std::string name; std::getline(header, name, ',');) names.push_back(name);
  r = LongScanResult();
  while (std::getline(in, line)) {
    std::map<std::string, double> v;
    std::istringstream fields(line);
    std::string field;
    for (size_t i = 0; i < names.size() && std::getline(fields, field, ','); ++i)
      v[names[i]] = std::atof(field.c_str());
    if (!v.count("t_s") || !v.count("rss_mb")) return false;
    LongScanSample s;
    s.t_s = v["t_s"];
    s.frames = int(v["frames"]);
    s.rss_mb = v["rss_mb"];
    s.heap_mb = v["heap_mb"];
    s.map_mb = v["map_mb"];
    s.blocks = size_t(v["blocks"]);
    s.chunks = size_t(v["chunks"]);
    s.tracked = size_t(v["tracked"]);
    s.keyframes = size_t(v["keyframes"]);
    s.landmarks = size_t(v["landmarks"]);
    s.texture_images = size_t(v["texture_images"]);
    s.fps = v["fps"];
    s.cpu_ms = v["cpu_ms"];
    s.grab_ms_max = v["grab_ms_max"];
    s.memory_full = v["memory_full"] != 0;
    if (s.memory_full && r.budget_reached_s < 0) r.budget_reached_s = s.t_s;
    r.samples.push_back(s);
  }
  return !r.samples.empty();
}

}  // namespace mapura::bench
