#include "tools/commands/estimation_report.h"

#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/version.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "planex/report/plain_text.h"
#include "tools/commands/estimation_figures.h"
#include "tools/commands/estimation_terms.h"

namespace planex::tools {
namespace {

using estimation::Estimation;
using estimation::Finding;
using estimation::ScanFit;
using estimation::Verdict;
using report::Document;
using report::figureText;
using report::Heading;
using report::Paragraph;
using report::Table;

constexpr std::size_t kMostFiles = 50, kMostReasons = 50, kMostScans = 200;

std::string countText(std::size_t count, const char* one, const char* many) {
  return fmt::format("{} {}", count, count == 1 ? one : many);
}

report::Verdict verdictOf(const Estimation& result, const std::string& unit) {
  report::Verdict verdict{
      static_cast<report::Verdict::Level>(result.verdict()), result.sentence(unit), {}, {}};
  for (std::size_t i = 0; i < std::min(result.findings.size(), kMostReasons); ++i) {
    const Finding& finding = result.findings[i];
    verdict.reasons.emplace_back(finding.level == Verdict::kBad ? "bad" : "warning", finding.text);
  }
  if (result.findings.empty()) verdict.more = "Nothing speaks against it.";
  if (result.findings.size() > kMostReasons) {
    verdict.more = fmt::format("There are {} more.", result.findings.size() - kMostReasons);
  }
  return verdict;
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

report::Table factsOf(const Estimation& result, const ReportSource& source) {
  const SmallUnit small(source.unit);
  Table::Cell files;
  for (std::size_t i = 0; i < std::min(source.files.size(), kMostFiles); ++i) {
    files.push_back(io::Failure::nameOf(source.files[i]));
  }
  if (source.files.size() > kMostFiles) {
    files.push_back(fmt::format("and {} more", source.files.size() - kMostFiles));
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
  Table table;
  table.rows.push_back({{source.files.size() == 1 ? "File" : "Files"}, files});
  table.add({"Sensor", fmt::format("{} columns and {} rows; {} % of it lie among points.",
                                   result.model.SensorSize.x, result.model.SensorSize.y,
                                   figureText(100 * result.measured, 2))});
  table.add({"Points", points + " " + tolerance});
  for (const estimation::TargetStretch& target : result.stretches) {
    if (std::isnan(target.stretch)) continue;  // a plate, which has no width
    table.add({"Target", fmt::format("Against its height it is {:.5f} times as wide as its "
                                     "description says, with a standard uncertainty of {}.",
                                     1 + target.stretch, figureText(target.deviation, 2))});
  }
  table.add(
      {"Noise", fmt::format("{} pixels (standard deviation), {}.", figureText(result.noise, 3),
                            source.isNoiseGiven ? "as it was given"
                                                : "found from the scatter of the points")});
  table.add({"Residuals", fmt::format("Points lie {} from where the model puts them (root of "
                                      "the mean square), and {} at most.",
                                      small.withName(result.rms), small.withName(result.largest))});
  table.add({"Neighbours", correlationText(result.correlation)});
  constexpr std::size_t kTerms = 21;
  table.add({"Test", result.used < kTerms ? "There are fewer points than the model has terms."
                                          : heldOutText(result.heldOut, onTarget)});
  return table;
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

/// A table, and what is to be said of it.
void addScans(const Estimation& result, const std::string& unit, Document& page) {
  const SmallUnit small(unit);
  Table table;
  table.heading = {"Scan", "Used", "Left out", "Residuals (" + small.name + " rms)"};
  table.texts = 1;
  const bool onTarget = !result.stretches.empty();
  if (onTarget) {
    const std::string inUnit = " (" + unit + ")";
    for (const std::string& head : {"Target at X" + inUnit, "Z" + inUnit,
                                    std::string("Tilt (\u00b0)"), std::string("Test")}) {
      table.heading.push_back(head);
    }
  }
  const std::vector<std::size_t> listed = listedScans(result.scans);
  for (const std::size_t i : listed) {
    const ScanFit& scan = result.scans[i];
    const std::size_t used = scan.given - scan.leftOut - scan.rejected.size();
    constexpr char kNone[] = "\xE2\x80\x93";
    std::vector<std::string> cells = {report::plainLine(scan.name, 128), std::to_string(used),
                                      std::to_string(scan.rejected.size()),
                                      used == 0 ? kNone : small.text(scan.rms)};
    constexpr double kDegrees = 57.29577951308232;
    if (onTarget && scan.isFound) {
      cells.insert(cells.end(), {fmt::format("{:.3f}", scan.x), fmt::format("{:.3f}", scan.z),
                                 fmt::format("{:.2f}", kDegrees * scan.angle),
                                 scan.heldOut > 0 ? fmt::format("{:.2f}", scan.heldOut) : kNone});
    }
    cells.resize(onTarget ? 8 : 4, kNone);
    table.add(cells);
  }
  page.blocks.emplace_back(Heading{"Scans"});
  page.blocks.emplace_back(std::move(table));
  if (onTarget) {
    page.blocks.emplace_back(
        Paragraph{"Test: how far a scan lies from what the others predict, over what is to be "
                  "expected; near 1 is right, above 2.5 it contradicts them.",
                  true});
  }
  if (listed.size() < result.scans.size()) {
    page.blocks.emplace_back(Paragraph{fmt::format("Listed are those {} of {} that fit worst.",
                                                   listed.size(), result.scans.size()),
                                       true});
  }
}

void addTerms(const Estimation& result, const ReportSource& source, Document& page) {
  const auto& parts = result.uncertainty.parts();
  page.blocks.emplace_back(Heading{"Terms of the model"});
  page.blocks.emplace_back(termTable(parts, result.model.SensorSize, source.unit, source.isPlane));
  page.blocks.emplace_back(Paragraph{
      fmt::format(
          "u and v are columns and rows from the centre of the lens, over half the diagonal "
          "of the sensor ({} pixels); X and Z are counted from the middle of the points. At "
          "the corner: how far the term alone moves that corner of the sensor which it "
          "moves most. Terms that do nearly the same are uncertain one by one, and yet "
          "their sum is well known; what counts is the map above.",
          figureText(parts.radius, 6)),
      true});
}

}  // namespace

Document estimationReport(const Estimation& result, const std::vector<PlaceResidual>& residuals,
                          const ReportSource& source) {
  Document page{"Estimation of a camera model", {}, "planex " PLANEX_VERSION_STRING};
  const auto add = [&page](auto block) { page.blocks.emplace_back(std::move(block)); };
  add(verdictOf(result, source.unit));
  add(Heading{"What was used"});
  add(factsOf(result, source));
  add(Heading{"How well each place of the sensor is known"});
  add(uncertaintyPicture(result.uncertainty, result.largest95, source.unit));
  if (result.next) {
    add(Heading{"What to measure next"});
    add(Paragraph{result.advice(source.unit)});
  }
  add(Heading{"Residuals"});
  for (report::Picture& picture : residualPictures(result, residuals, source.unit)) {
    add(std::move(picture));
  }
  addScans(result, source.unit, page);
  addTerms(result, source, page);
  return page;
}

}  // namespace planex::tools
