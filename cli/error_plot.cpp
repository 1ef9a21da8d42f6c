#include "cli/error_plot.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <opencv2/imgproc.hpp>
#include <sstream>

namespace boxdim {

namespace {

constexpr int kPanelWidth = 400;
constexpr int kPanelHeight = 280;
constexpr int kHeaderHeight = 56;
// Room inside a panel for its title, tick labels and axis labels.
constexpr int kLeftMargin = 64;
constexpr int kRightMargin = 16;
constexpr int kTopMargin = 28;
constexpr int kBottomMargin = 46;

// Errors below the floor sit on the bottom edge: a log axis has no zero.
constexpr double kErrorFloorMm = 0.01;
constexpr int kMinErrorDecades = 3;

const cv::Scalar kBackground(255, 255, 255);
const cv::Scalar kInk(40, 40, 40);
const cv::Scalar kGrid(228, 228, 228);
const int kFont = cv::FONT_HERSHEY_SIMPLEX;

cv::Scalar series_colour(int series) {
  static const cv::Scalar kColours[] = {{180, 110, 20}, {20, 130, 240}, {50, 160, 50},
                                        {40, 40, 200},  {160, 90, 150}, {80, 80, 80}};
  return kColours[series % static_cast<int>(std::size(kColours))];
}

struct Axis {
  double low = 0.0;
  double high = 1.0;
  double step = 1.0;  // between ticks
};

// Ticks at 1, 2 or 5 times a power of ten, about five of them over the data.
Axis linear_axis(double data_low, double data_high) {
  if (data_high <= data_low) data_high = data_low + 1.0;
  const double rough = (data_high - data_low) / 5.0;
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  double step = power;
  for (const double factor : {2.0, 5.0, 10.0}) {
    if (step >= rough) break;
    step = factor * power;
  }
  return {std::floor(data_low / step) * step, std::ceil(data_high / step) * step, step};
}

std::string tick_text(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

void put_text(cv::Mat& image, const std::string& text, cv::Point anchor, double scale,
              double align_x, double align_y, const cv::Scalar& colour = kInk) {
  int baseline = 0;
  const cv::Size size = cv::getTextSize(text, kFont, scale, 1, &baseline);
  const cv::Point origin(anchor.x - static_cast<int>(align_x * size.width),
                         anchor.y + static_cast<int>(align_y * size.height));
  cv::putText(image, text, origin, kFont, scale, colour, 1, cv::LINE_AA);
}

// Text turned a quarter anticlockwise, centred on `centre`.
void put_vertical_text(cv::Mat& image, const std::string& text, cv::Point centre, double scale) {
  int baseline = 0;
  const cv::Size size = cv::getTextSize(text, kFont, scale, 1, &baseline);
  cv::Mat strip(size.height + baseline + 4, size.width + 4, image.type(), kBackground);
  cv::putText(strip, text, cv::Point(2, size.height + 2), kFont, scale, kInk, 1, cv::LINE_AA);
  cv::Mat turned;
  cv::rotate(strip, turned, cv::ROTATE_90_COUNTERCLOCKWISE);
  const cv::Rect where(centre.x - turned.cols / 2, centre.y - turned.rows / 2, turned.cols,
                       turned.rows);
  const cv::Rect inside = where & cv::Rect(0, 0, image.cols, image.rows);
  turned(cv::Rect(inside.tl() - where.tl(), inside.size())).copyTo(image(inside));
}

struct Panel {
  cv::Rect plot;  // the data area in the picture
  Axis x;
  double log_low = 0.0;  // log10 of the error axis' ends
  double log_high = 1.0;

  cv::Point at(double x_value, double error_mm) const {
    const double fx = (x_value - x.low) / (x.high - x.low);
    const double log_error = std::log10(std::max(error_mm, kErrorFloorMm));
    const double fy = (log_error - log_low) / (log_high - log_low);
    return {plot.x + static_cast<int>(std::lround(fx * plot.width)),
            plot.y + plot.height - static_cast<int>(std::lround(fy * plot.height))};
  }
};

void draw_frame(cv::Mat& image, const Panel& panel, const std::string& title,
                const std::string& x_label) {
  const cv::Rect& p = panel.plot;
  for (int decade = static_cast<int>(panel.log_low); decade <= panel.log_high; ++decade) {
    const int y = panel.at(panel.x.low, std::pow(10.0, decade)).y;
    cv::line(image, {p.x, y}, {p.x + p.width, y}, kGrid);
    cv::line(image, {p.x - 4, y}, {p.x, y}, kInk);
    put_text(image, tick_text(std::pow(10.0, decade)), {p.x - 7, y}, 0.38, 1.0, 0.5);
  }
  const int ticks = static_cast<int>(std::lround((panel.x.high - panel.x.low) / panel.x.step));
  for (int i = 0; i <= ticks; ++i) {
    const double value = panel.x.low + i * panel.x.step;
    const int x = panel.at(value, kErrorFloorMm).x;
    cv::line(image, {x, p.y}, {x, p.y + p.height}, kGrid);
    cv::line(image, {x, p.y + p.height}, {x, p.y + p.height + 4}, kInk);
    put_text(image, tick_text(value), {x, p.y + p.height + 8}, 0.38, 0.5, 1.0);
  }
  cv::rectangle(image, p, kInk);
  put_text(image, title, {p.x + p.width / 2, p.y - 10}, 0.5, 0.5, 0.0);
  put_text(image, x_label, {p.x + p.width / 2, p.y + p.height + 32}, 0.42, 0.5, 0.5);
  put_vertical_text(image, "abs. error (mm)", {p.x - 50, p.y + p.height / 2}, 0.42);
}

Axis data_axis(const std::vector<ErrorPoint>& points,
               const std::function<double(const ErrorPoint&)>& value, double low_default,
               double high_default, bool from_zero) {
  if (points.empty()) return linear_axis(low_default, high_default);
  double low = value(points.front());
  double high = low;
  for (const ErrorPoint& point : points) {
    low = std::min(low, value(point));
    high = std::max(high, value(point));
  }
  return linear_axis(from_zero ? 0.0 : low, high);
}

void draw_legend(cv::Mat& image, const std::vector<std::string>& series, int point_count) {
  put_text(image,
           "Absolute error of each measured scene (" + std::to_string(point_count) + " scenes)",
           {16, 14}, 0.55, 0.0, 1.0);
  int x = 16;
  for (std::size_t i = 0; i < series.size(); ++i) {
    cv::circle(image, {x + 5, 42}, 5, series_colour(static_cast<int>(i)), cv::FILLED, cv::LINE_AA);
    put_text(image, series[i], {x + 16, 42}, 0.45, 0.0, 0.5);
    int baseline = 0;
    x += 40 + cv::getTextSize(series[i], kFont, 0.45, 1, &baseline).width;
  }
}

}  // namespace

cv::Mat draw_error_plot(const std::vector<std::string>& series,
                        const std::vector<ErrorPoint>& points) {
  cv::Mat image(kHeaderHeight + 2 * kPanelHeight, 3 * kPanelWidth, CV_8UC3, kBackground);
  draw_legend(image, series, static_cast<int>(points.size()));

  double largest_error = kErrorFloorMm;
  for (const ErrorPoint& point : points) {
    for (const double error : point.abs_error_mm) largest_error = std::max(largest_error, error);
  }
  const double log_low = std::log10(kErrorFloorMm);
  const double log_high =
      std::max(std::ceil(std::log10(largest_error)), log_low + kMinErrorDecades);

  struct Row {
    std::function<double(const ErrorPoint&)> value;
    Axis axis;
    const char* name;
    const char* label;
  };
  const auto tilt = [](const ErrorPoint& p) { return p.tilt_deg; };
  const auto distance = [](const ErrorPoint& p) { return p.distance_mm; };
  const Row rows[] = {
      {tilt, data_axis(points, tilt, 0.0, 20.0, true), "tilt", "camera tilt from vertical (deg)"},
      {distance, data_axis(points, distance, 500.0, 2000.0, false), "distance",
       "camera distance to the top face (mm)"},
  };
  const char* dimensions[] = {"length", "width", "height"};

  for (int r = 0; r < 2; ++r) {
    for (int c = 0; c < 3; ++c) {
      Panel panel;
      panel.plot = cv::Rect(
          c * kPanelWidth + kLeftMargin, kHeaderHeight + r * kPanelHeight + kTopMargin,
          kPanelWidth - kLeftMargin - kRightMargin, kPanelHeight - kTopMargin - kBottomMargin);
      panel.x = rows[r].axis;
      panel.log_low = log_low;
      panel.log_high = log_high;
      draw_frame(image, panel, std::string(dimensions[c]) + " error vs " + rows[r].name,
                 rows[r].label);
      for (const ErrorPoint& point : points) {
        cv::circle(image, panel.at(rows[r].value(point), point.abs_error_mm[c]), 3,
                   series_colour(point.series), cv::FILLED, cv::LINE_AA);
      }
    }
  }
  return image;
}

}  // namespace boxdim
