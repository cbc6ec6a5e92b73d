#include "tools/loomerctl/report/SessionChart.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/report/Markup.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

using std::chrono::sys_days;

constexpr int kFewestDays = 14;  // a single bar says nothing of time
constexpr double kBarHeight = 40;
constexpr double kEarliest = -kSecondsFrom1970To2001;  // what calendars of bookmarks need not go before

/// The local day.
sys_days dayOf(Date date) {
  const auto seconds = static_cast<std::time_t>(std::floor(date.seconds + kSecondsFrom1970To2001));
  std::tm local{};
  localtime_r(&seconds, &local);  // cannot fail between 1970 and now
  return std::chrono::year(local.tm_year + 1900) / (local.tm_mon + 1) / local.tm_mday;
}

std::string dayText(sys_days day) {
  const std::chrono::year_month_day date(day);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return text;
}

struct Bar {
  sys_days first;
  std::size_t sessions = 0;
  std::size_t changed = 0;
};

// Oldest first, the last one ends today.
std::vector<Bar> barsOf(const std::vector<SessionEntry>& sessions, Date now) {
  const auto dayOfSession = [now](const SessionEntry& session) {
    return dayOf(Date{std::clamp(session.began.seconds, std::min(kEarliest, now.seconds), now.seconds)});
  };
  const sys_days today = dayOf(now);
  sys_days earliest = today - std::chrono::days(kFewestDays - 1);
  for (const SessionEntry& each : sessions) earliest = std::min(earliest, dayOfSession(each));
  const auto days = (today - earliest).count() + 1;
  const auto width = (days + kMostBars - 1) / kMostBars;
  const auto count = (days + width - 1) / width;
  std::vector<Bar> bars;
  for (auto i = count; i > 0; --i) bars.push_back({today - std::chrono::days(i * width - 1)});
  for (const SessionEntry& each : sessions) {
    Bar& bar = bars[static_cast<std::size_t>((dayOfSession(each) - bars[0].first).count() / width)];
    ++bar.sessions;
    bar.changed += each.changed;
  }
  return bars;
}

// In SVG's units, one of which is a bar's share of the width.
std::string barHtml(std::size_t place, double share, const std::string& label) {
  const double height = std::max(share * kBarHeight, share > 0 ? 1.0 : 0.0);
  char shape[128];
  std::snprintf(shape, sizeof shape, "<rect x=\"%.2f\" y=\"%.2f\" width=\"0.76\" height=\"%.2f\">",
                static_cast<double>(place) + 0.12, kBarHeight - height, height);
  return std::string(shape) + "<title>" + label + "</title></rect>";
}

struct Series {
  const char* kind;  // a class of the style sheet
  std::string heading;
  std::size_t Bar::*value;
  bool logarithmic = false;
};

std::string seriesHtml(const Series& series, const std::vector<Bar>& bars, Date now) {
  std::size_t most = 0;
  for (const Bar& each : bars) most = std::max(most, each.*series.value);
  const auto share = [&](std::size_t value) {
    if (value == 0) return 0.0;
    if (!series.logarithmic) return static_cast<double>(value) / static_cast<double>(most);
    return std::log1p(static_cast<double>(value)) / std::log1p(static_cast<double>(most));
  };
  const std::string from = dayText(bars[0].first);
  const std::string to = dayText(dayOf(now));
  std::string html = std::string("<figure class=\"chart ") + series.kind + "\"><figcaption>" +
                     asHtml(series.heading) + " <small>" + asHtml(tr("at most %1", most)) +
                     "</small></figcaption>\n<svg viewBox=\"0 0 " + std::to_string(bars.size()) +
                     " 40\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" +
                     asHtml(tr("Bars from %1 to %2, at most %3", from, to, most)) + "\">";
  for (std::size_t i = 0; i < bars.size(); ++i) {
    const std::size_t value = bars[i].*series.value;
    if (value > 0) html += barHtml(i, share(value), dayText(bars[i].first) + ": " + grouped(value));
  }
  return html + "</svg>\n<p class=\"axis\"><span>" + from + "</span><span>" + to + "</span></p></figure>\n";
}

}  // namespace

std::string sessionChartHtml(const std::vector<SessionEntry>& sessions, Date now) {
  if (sessions.empty()) return {};
  const std::vector<Bar> bars = barsOf(sessions, now);
  return seriesHtml({"sessions", tr("Sessions"), &Bar::sessions}, bars, now) +
         seriesHtml({"changes", tr("Changed records, on a logarithmic scale"), &Bar::changed, true}, bars,
                    now);
}

}  // namespace corvane::loomerctl
