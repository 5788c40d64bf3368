#include "tools/commands/estimation_report.h"

#include <fmt/format.h>
#include <planex/version.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "tools/cli/html.h"
#include "tools/commands/estimation_figures.h"
#include "tools/commands/estimation_terms.h"

namespace planex::tools {
namespace {

using estimation::Estimation;
using estimation::Finding;
using estimation::ScanFit;
using estimation::Verdict;

constexpr std::size_t kMostFiles = 50, kMostReasons = 50, kMostScans = 200;

const char* const kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; style-src 'unsafe-inline'; img-src data:">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Estimation of a camera model</title>
<style>
@page { size: A4; margin: 16mm; }
body { margin: 0 auto; max-width: 900px; padding: 24px; background: #fff; color: #212529;
 font: 15px/1.5 "DejaVu Sans", Verdana, "Helvetica Neue", Arial, sans-serif; }
h1 { margin: 0 0 16px; font-size: 24px; }
h2 { margin: 36px 0 8px; padding-bottom: 4px; border-bottom: 1px solid #adb4bc; font-size: 18px; }
p, ul { margin: 8px 0; }
ul { padding-left: 22px; }
.verdict { display: flex; gap: 18px; align-items: flex-start; padding: 16px 18px;
 border: 1px solid; border-left-width: 10px; border-radius: 4px; }
.verdict svg { flex: none; width: 52px; height: 52px; }
.verdict p, .verdict ul { margin: 8px 0 0; }
.verdict p:first-child { margin: 4px 0 0; font-size: 18px; font-weight: bold; }
.good { border-color: #00875f; background: #f1f9f6; }
.doubtful { border-color: #b35c00; background: #fdf6ec; }
.bad { border-color: #b3261e; background: #fdf1f0; }
figure { margin: 12px 0; }
figure img { display: block; width: 100%; height: auto; }
figcaption, .note { color: #495057; font-size: 13px; }
table { width: 100%; margin: 12px 0; border-collapse: collapse; font-size: 13px;
 font-variant-numeric: tabular-nums; }
th, td { padding: 4px 10px; border-bottom: 1px solid #e2e5e9; text-align: left;
 vertical-align: top; overflow-wrap: anywhere; }
thead th { border-bottom: 2px solid #adb4bc; vertical-align: bottom; overflow-wrap: normal; }
.figure { text-align: right; overflow-wrap: normal; }
td.figure { white-space: nowrap; }
.group { padding-top: 12px; }
.terms th, .terms td { padding: 4px 6px; overflow-wrap: normal; }
.terms td { white-space: nowrap; }
.scans { width: 100%; }
.scans td:first-child { min-width: 8em; }
.facts td:first-child { width: 26%; font-weight: bold; }
footer { margin-top: 36px; color: #495057; font-size: 12px; }
@media print {
 body { max-width: none; padding: 0; font-size: 10pt; }
 table, figcaption, .note { font-size: 8.5pt; }
 h2 { break-after: avoid; }
 figure, tr, .verdict { break-inside: avoid; }
}
</style>
</head>
<body>
<h1>Estimation of a camera model</h1>
)";

/// A verdict's class, its word and a sign that is told without colours.
struct Sign {
  const char* style;
  const char* word;
  const char* drawing;
};

const Sign kSigns[] = {
    {"good", "good",
     R"(<circle cx="26" cy="26" r="24" fill="#00875f"/>)"
     R"(<path d="M14 27l8 9 16-19" fill="none" stroke="#fff" stroke-width="5"/>)"},
    {"doubtful", "doubtful",
     R"(<path d="M26 3L51 48H1z" fill="#b35c00"/>)"
     R"(<path d="M26 18v15M26 38v5" stroke="#fff" stroke-width="5"/>)"},
    {"bad", "bad",
     R"(<path d="M16 2h20l14 14v20L36 50H16L2 36V16z" fill="#b3261e"/>)"
     R"(<path d="M16 16l20 20M36 16L16 36" stroke="#fff" stroke-width="5"/>)"}};

std::string countText(std::size_t count, const char* one, const char* many) {
  return fmt::format("{} {}", count, count == 1 ? one : many);
}

std::string verdictText(const Estimation& result, const std::string& unit) {
  const Sign& sign = kSigns[static_cast<int>(result.verdict())];
  std::string text = fmt::format(
      "<section class=\"verdict {}\">\n<svg viewBox=\"0 0 52 52\" role=\"img\">"
      "<title>{}</title>{}</svg>\n<div>\n<p>{}</p>\n",
      sign.style, sign.word, sign.drawing, htmlText(result.sentence(unit)));
  if (result.findings.empty()) {
    text += "<p>Nothing speaks against it.</p>\n";
  } else {
    text += "<ul>\n";
    for (std::size_t i = 0; i < std::min(result.findings.size(), kMostReasons); ++i) {
      const Finding& finding = result.findings[i];
      text +=
          fmt::format("<li><b>{}</b>: {}</li>\n",
                      finding.level == Verdict::kBad ? "bad" : "warning", htmlText(finding.text));
    }
    text += "</ul>\n";
  }
  if (result.findings.size() > kMostReasons) {
    text += fmt::format("<p>There are {} more.</p>\n", result.findings.size() - kMostReasons);
  }
  return text + "</div>\n</section>\n";
}

/// What the residuals of places that were kept back say, in words.
std::string heldOutText(double heldOut, bool ofScans) {
  const char* meaning = "that is near 1, as it should be.";
  if (!(heldOut <= 1.3)) {
    meaning =
        "that is well above 1: the stated uncertainty is too small, and the model or the points "
        "have faults that the noise does not explain.";
  } else if (heldOut < 0.7) {
    meaning = "that is well below 1: the stated uncertainty is cautious.";
  }
  return fmt::format(
      "{} The points lie {:.2f} times as far from these predictions as the stated uncertainty lets "
      "expect; {}",
      ofScans ? "Each scan was predicted from the others, wherever the target stood."
              : "Each part of the measured area was predicted from the points of the others.",
      heldOut, meaning);
}

std::string correlationText(double correlation) {
  if (correlation < 1.05) {
    return "Residuals of neighbouring points are independent of each other.";
  }
  return fmt::format(
      "Residuals of neighbouring points go together: their means vary {} times as much as those of "
      "independent ones. The stated uncertainty accounts for that.",
      figureText(correlation, 2));
}

std::string factsText(const Estimation& result, const ReportSource& source) {
  const SmallUnit small(source.unit);
  std::string files;
  for (std::size_t i = 0; i < std::min(source.files.size(), kMostFiles); ++i) {
    files += (i == 0 ? "" : "<br>") +
             htmlText(source.files[i] == "-" ? "standard input" : source.files[i]);
  }
  if (source.files.size() > kMostFiles) {
    files += fmt::format("<br>and {} more", source.files.size() - kMostFiles);
  }
  const bool onTarget = !result.stretches.empty();
  const std::size_t rejected = result.given - result.used;
  std::string points = fmt::format("{} of {} were used.", result.used, result.given);
  if (rejected > 0) {
    points += fmt::format(" {} left out, because {} the others.",
                          countText(rejected, "point was", "points were"),
                          rejected == 1 ? "it contradicts" : "they contradict");
  }
  const std::string tolerance =
      onTarget ? "They lie on edges of the target, whose place in each scan was estimated."
      : source.pointTolerance > 0
          ? fmt::format("The places of the points are known to {} (standard uncertainty).",
                        small.withName(source.pointTolerance))
          : "The places of the points were taken as exact.";
  HtmlTable table({}, 2, "facts");
  table.addRow({source.files.size() == 1 ? "File" : "Files", files});
  table.addRow({"Sensor", fmt::format("{} columns and {} rows; {} % of it lie among points.",
                                      result.model.SensorSize.x, result.model.SensorSize.y,
                                      figureText(100 * result.measured, 2))});
  table.addRow({"Points", points + " " + tolerance});
  for (const estimation::TargetStretch& target : result.stretches) {
    if (std::isnan(target.stretch)) continue;  // a plate, which has no width
    table.addRow({"Target", fmt::format("Against its height it is {:.5f} times as wide as its "
                                        "description says, with a standard uncertainty of {}.",
                                        1 + target.stretch, figureText(target.deviation, 2))});
  }
  table.addRow(
      {"Noise", fmt::format("{} pixels (standard deviation), {}.", figureText(result.noise, 3),
                            source.isNoiseGiven ? "as it was given"
                                                : "found from the scatter of the points")});
  table.addRow(
      {"Residuals", fmt::format("Points lie {} from where the model puts them (root of "
                                "the mean square), and {} at most.",
                                small.withName(result.rms), small.withName(result.largest))});
  table.addRow({"Neighbours", correlationText(result.correlation)});
  constexpr std::size_t kTerms = 21;
  table.addRow({"Test", result.used < kTerms ? "There are fewer points than the model has terms."
                                             : heldOutText(result.heldOut, onTarget)});
  return "<h2>What was used</h2>\n" + table.print();
}

/// Which scans are listed: all, or of many those that fit worst, in their order.
std::vector<std::size_t> listedScans(const std::vector<ScanFit>& scans) {
  std::vector<std::size_t> listed(scans.size());
  for (std::size_t i = 0; i < scans.size(); ++i) listed[i] = i;
  if (scans.size() <= kMostScans) return listed;
  const auto share = [&scans](std::size_t i) {
    return static_cast<double>(scans[i].rejected.size()) / static_cast<double>(scans[i].given);
  };
  std::stable_sort(listed.begin(), listed.end(), [&](std::size_t a, std::size_t b) {
    return share(a) != share(b) ? share(a) > share(b) : scans[a].rms > scans[b].rms;
  });
  listed.resize(kMostScans);
  std::sort(listed.begin(), listed.end());
  return listed;
}

std::string scansHtml(const Estimation& result, const std::string& unit) {
  const SmallUnit small(unit);
  std::vector<std::string> heads = {"Scan", "Used", "Left out",
                                    "Residuals (" + htmlText(small.name) + " rms)"};
  const bool onTarget = !result.stretches.empty();
  if (onTarget) {
    const std::string inUnit = " (" + htmlText(unit) + ")";
    heads.insert(heads.end(), {"Target at X" + inUnit, "Z" + inUnit, "Tilt (\u00b0)", "Test"});
  }
  HtmlTable table(heads, 1, "scans");
  const std::vector<std::size_t> listed = listedScans(result.scans);
  for (const std::size_t i : listed) {
    const ScanFit& scan = result.scans[i];
    const std::size_t used = scan.given - scan.leftOut - scan.rejected.size();
    constexpr char kNone[] = "\xE2\x80\x93";
    std::vector<std::string> cells = {htmlText(scan.name, 128), std::to_string(used),
                                      std::to_string(scan.rejected.size()),
                                      used == 0 ? kNone : small.text(scan.rms)};
    constexpr double kDegrees = 57.29577951308232;
    if (onTarget && scan.isFound) {
      cells.insert(cells.end(), {fmt::format("{:.3f}", scan.x), fmt::format("{:.3f}", scan.z),
                                 fmt::format("{:.2f}", kDegrees * scan.angle),
                                 scan.heldOut > 0 ? fmt::format("{:.2f}", scan.heldOut) : kNone});
    }
    cells.resize(onTarget ? 8 : 4, kNone);
    table.addRow(cells);
  }
  std::string text = "<h2>Scans</h2>\n" + table.print();
  if (onTarget) {
    text +=
        "<p class=\"note\">Test: how far a scan lies from what the others predict, over what is "
        "to be expected; near 1 is right, above 2.5 it contradicts them.</p>\n";
  }
  if (listed.size() < result.scans.size()) {
    text += fmt::format("<p class=\"note\">Listed are those {} of {} that fit worst.</p>\n",
                        listed.size(), result.scans.size());
  }
  return text;
}

std::string nextHtml(const Estimation& result, const std::string& unit) {
  if (!result.next) return "";
  return "<h2>What to measure next</h2>\n<p>" + htmlText(result.advice(unit)) + "</p>\n";
}

std::string termsHtml(const Estimation& result, const ReportSource& source) {
  const auto& parts = result.uncertainty.parts();
  return "<h2>Terms of the model</h2>\n" +
         termTable(parts, result.model.SensorSize, source.unit, source.isPlane) +
         fmt::format(
             "<p class=\"note\">u and v are columns and rows from the centre of the lens, over "
             "half "
             "the diagonal of the sensor ({} pixels); X and Z are counted from the middle of the "
             "points. At the corner: how far the term alone moves that corner of the sensor which "
             "it moves most. Terms that do nearly the same are uncertain one by one, and yet "
             "their sum is well known; what counts is the map above.</p>\n",
             figureText(parts.radius, 6));
}

}  // namespace

std::string estimationReport(const Estimation& result, const std::vector<PlaceResidual>& residuals,
                             const ReportSource& source) {
  return kHead + verdictText(result, source.unit) + factsText(result, source) +
         uncertaintyFigure(result, source.unit) + nextHtml(result, source.unit) +
         residualFigures(result, residuals, source.unit) + scansHtml(result, source.unit) +
         termsHtml(result, source) +
         "<footer>planex " PLANEX_VERSION_STRING "</footer>\n</body>\n</html>\n";
}

}  // namespace planex::tools
