#include "interface/interface_impl.h"

#include <ctime>

namespace boxdim {

namespace {

DetectionStatus detection_status(BoxStatus status) {
  switch (status) {
    case BoxStatus::kMeasured:
      return DetectionStatus::kMeasured;
    case BoxStatus::kPartial:
      return DetectionStatus::kPartial;
    case BoxStatus::kIrregular:
      return DetectionStatus::kIrregular;
    case BoxStatus::kTooSmall:
      return DetectionStatus::kTooSmall;
    case BoxStatus::kUncertain:
      return DetectionStatus::kUncertain;
  }
  return DetectionStatus::kIrregular;
}

Detection detection_of(const precise::BoxFit& fit) {
  Detection d;
  d.status = detection_status(fit.status);
  if (fit.status == BoxStatus::kMeasured) {
    d.length_mm = fit.length_mm;
    d.width_mm = fit.width_mm;
    d.height_mm = fit.height_mm;
  }
  for (int i = 0; i < 4; ++i) {
    d.corners_px[i][0] = fit.corners_px[i].x;
    d.corners_px[i][1] = fit.corners_px[i].y;
    d.corners_mm[i][0] = fit.corners_mm[i].x;
    d.corners_mm[i][1] = fit.corners_mm[i].y;
    d.corners_mm[i][2] = fit.corners_mm[i].z;
  }
  d.center_px[0] = fit.centre_px.x;
  d.center_px[1] = fit.centre_px.y;
  d.confidence = fit.confidence;
  if (fit.status == BoxStatus::kMeasured || fit.status == BoxStatus::kUncertain) {
    d.length_uncertainty_mm = fit.uncertainty.box_length;
    d.width_uncertainty_mm = fit.uncertainty.box_width;
    d.height_uncertainty_mm = fit.uncertainty.box_height;
  }
  return d;
}

void add_track(const tracking::Assignment& assignment, Detection& d) {
  d.track_id = assignment.track_id;
  if (!assignment.reading) return;
  const FusedReading& r = *assignment.reading;
  d.fused_length_mm = r.dimensions.box_length;
  d.fused_width_mm = r.dimensions.box_width;
  d.fused_height_mm = r.dimensions.box_height;
  d.uncertainty_mm = r.uncertainty_mm;
  d.fused_frames = r.frames;
}

Event event_of(const TrackEvent& e) {
  Event event;
  event.kind = e.kind == TrackEventKind::kPlaced     ? EventKind::kPlaced
               : e.kind == TrackEventKind::kMeasured ? EventKind::kMeasured
                                                     : EventKind::kRemoved;
  event.track_id = e.track_id;
  event.time_us = e.time_us;
  if (e.kind == TrackEventKind::kMeasured) {
    event.length_mm = e.reading.dimensions.box_length;
    event.width_mm = e.reading.dimensions.box_width;
    event.height_mm = e.reading.dimensions.box_height;
    event.uncertainty_mm = e.reading.uncertainty_mm;
    event.frames = e.reading.frames;
  }
  return event;
}

}  // namespace

Interface* Interface::CreateInterface() { return new InterfaceImpl(); }

const char* DetectionStatusName(DetectionStatus status) {
  switch (status) {
    case DetectionStatus::kMeasured:
      return "measured";
    case DetectionStatus::kPartial:
      return "partial";
    case DetectionStatus::kIrregular:
      return "irregular";
    case DetectionStatus::kTooSmall:
      return "too_small";
    case DetectionStatus::kUncertain:
      return "uncertain";
  }
  return "unknown";
}

const char* EventKindName(EventKind kind) {
  switch (kind) {
    case EventKind::kPlaced:
      return "placed";
    case EventKind::kMeasured:
      return "measured";
    case EventKind::kRemoved:
      return "removed";
  }
  return "unknown";
}

InterfaceImpl::InterfaceImpl() {
  detections_.reserve(kMaxDetections);
  events_.reserve(2 * kMaxTrackSlots);
  SetExactIntrinsics(intrinsics_.fx, intrinsics_.fy, intrinsics_.cx, intrinsics_.cy);
}

bool InterfaceImpl::SetDivision(float division_mm) {
  if (!(division_mm >= 0.1f && division_mm <= 1000.0f)) return false;
  boxes_.set_division(division_mm);
  return true;
}

void InterfaceImpl::SetIntrinsics(int fx, int fy, int cx, int cy) {
  fx_ = fx;
  fy_ = fy;
  cx_ = cx;
  cy_ = cy;
  intrinsics_ = {static_cast<float>(fx), static_cast<float>(fy), static_cast<float>(cx),
                 static_cast<float>(cy)};
}

void InterfaceImpl::SetExactIntrinsics(float fx, float fy, float cx, float cy) {
  // Truncated as the station program truncates them; a value out of int's
  // range leaves its whole-number field at 0 rather than overflowing.
  const auto whole = [](float v) { return v > -2.0e9f && v < 2.0e9f ? static_cast<int>(v) : 0; };
  fx_ = whole(fx);
  fy_ = whole(fy);
  cx_ = whole(cx);
  cy_ = whole(cy);
  intrinsics_ = {fx, fy, cx, cy};
}

int InterfaceImpl::DetectAt(const std::uint16_t* depth, int width, int height, std::int64_t time_us,
                            int row_stride) {
  detections_.clear();
  events_.clear();
  if (row_stride == 0) row_stride = width;
  if (depth == nullptr) {
    problem_ = "no depth image (a null pointer)";
    return -1;
  }
  if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide ||
      static_cast<long long>(width) * height > kMaxImagePixels) {
    problem_ = "the depth image's size " + std::to_string(width) + " x " + std::to_string(height) +
               " is out of range (1 to " + std::to_string(kMaxImageSide) + " a side, " +
               std::to_string(kMaxImagePixels) + " pixels in all)";
    return -1;
  }
  if (row_stride < width) {
    problem_ = "the row stride " + std::to_string(row_stride) + " is shorter than a row (" +
               std::to_string(width) + " samples)";
    return -1;
  }
  const cv::Mat image(height, width, CV_16UC1, const_cast<std::uint16_t*>(depth),
                      static_cast<std::size_t>(row_stride) * sizeof(std::uint16_t));
  const std::uint64_t seed = seed_ ? *seed_ : static_cast<std::uint64_t>(std::time(nullptr));
  boxes_.detect(image, intrinsics_, time_us, seed);
  const precise::BoxDetector& detector = boxes_.detector();
  if (detector.intrinsics_unusable()) {
    problem_ = detector.problem();
    return -1;
  }
  const std::vector<precise::BoxFit>& fits = boxes_.fits();
  for (std::size_t i = 0; i < fits.size(); ++i) {
    detections_.push_back(detection_of(fits[i]));
    add_track(boxes_.assignments()[i], detections_.back());
  }
  for (const TrackEvent& e : boxes_.events()) events_.push_back(event_of(e));
  problem_.clear();
  const precise::BoxFit* first_unmeasured = nullptr;
  bool measured = false;
  for (const precise::BoxFit& fit : fits) {
    measured = measured || fit.status == BoxStatus::kMeasured;
    if (fit.status != BoxStatus::kMeasured && !first_unmeasured) first_unmeasured = &fit;
  }
  if (fits.empty()) {
    problem_ = detector.problem();
  } else if (!measured) {
    problem_ = std::string("no box could be measured: the largest is ") +
               box_status_name(first_unmeasured->status) + " (" + first_unmeasured->reason + ")";
  }
  return DetectionCount();
}

bool InterfaceImpl::GetDetection(int index, Detection* detection) const {
  if (detection == nullptr || index < 0 || index >= DetectionCount()) return false;
  *detection = detections_[static_cast<std::size_t>(index)];
  return true;
}

bool InterfaceImpl::GetEvent(int index, Event* event) const {
  if (event == nullptr || index < 0 || index >= EventCount()) return false;
  *event = events_[static_cast<std::size_t>(index)];
  return true;
}

bool InterfaceImpl::GetFloor(float normal[3], float* offset) const {
  const std::optional<precise::FloorPlane>& floor = boxes_.detector().floor();
  if (!floor) return false;
  if (normal != nullptr) {
    for (int i = 0; i < 3; ++i) normal[i] = floor->normal[i];
  }
  if (offset != nullptr) *offset = floor->offset;
  return true;
}

}  // namespace boxdim
