// boxdim's box detector as a library: every box standing on the floor of a
// depth image, each measured as its smallest enclosing cuboid. This header is
// all a program needs; it uses nothing beyond the C++ standard library.
//
//   boxdim::Interface* detector = boxdim::Interface::CreateInterface();
//   detector->SetExactIntrinsics(506.426f, 506.605f, 323.018f, 231.166f);
//   const int count = detector->Detect(depth, 640, 480);  // -1: see LastProblem()
//   for (int i = 0; i < count; ++i) {
//     boxdim::Detection box;
//     detector->GetDetection(i, &box);
//     if (box.status == boxdim::DetectionStatus::kMeasured) use(box.length_mm, ...);
//   }
//   delete detector;
//
// An instance follows one camera: it keeps the floor it found from image to
// image, and follows each box from image to image (its track id, a reading
// fused over the images, events when a box is placed, measured and removed).
// It is not safe to call one instance from two threads at once.
#pragma once

#include <cstdint>

namespace boxdim {

enum class DetectionStatus {
  kMeasured = 0,   // length, width and height hold the box's size
  kPartial = 1,    // cut by the image's border or by missing depth: size unknown
  kIrregular = 2,  // the top is not a flat rectangle (two boxes touching, a bag)
  kTooSmall = 3,   // a side under 50 mm, the smallest box measured
  kUncertain = 4,  // its size cannot be told within the station's division
};

// One box on the floor. Lengths in millimetres; image points as (column, row)
// in pixels; camera points as (x right, y down, z along the view) in mm.
struct Detection {
  DetectionStatus status = DetectionStatus::kIrregular;
  // The smallest enclosing cuboid, length >= width; 0 unless measured.
  float length_mm = 0.0f;
  float width_mm = 0.0f;
  float height_mm = 0.0f;
  // The top's corners in order around it, in the image and in the camera's
  // frame (at the height of the top's rim).
  float corners_px[4][2] = {};
  float corners_mm[4][3] = {};
  float center_px[2] = {};
  // Each dimension's uncertainty (mm, about 95 % of errors within it), for
  // a measured or an uncertain box; 0 otherwise. An uncertain box's exceeds
  // the division in at least one dimension.
  float length_uncertainty_mm = 0.0f;
  float width_uncertainty_mm = 0.0f;
  float height_uncertainty_mm = 0.0f;
  // For a measured or uncertain box, the chance as its uncertainty tells it
  // that every dimension is within the division; for the others, 0 to 1 from
  // how well the top's outline fits a rectangle.
  float confidence = 0.0f;
  // The box's track: the same number for the same box from image to image;
  // -1 when it is not followed (a box too small, an irregular top that is
  // no box followed so far, or all track slots taken).
  int track_id = -1;
  // The track's reading, fused from every image the box was measured in
  // (the median of its last 256), once there is one: fused_frames > 0. The
  // uncertainty is the largest of the three dimensions' (about 95 %).
  float fused_length_mm = 0.0f;
  float fused_width_mm = 0.0f;
  float fused_height_mm = 0.0f;
  float uncertainty_mm = 0.0f;
  int fused_frames = 0;
};

enum class EventKind {
  kPlaced = 0,    // a new box appeared (seen in 3 images, measured in one)
  kMeasured = 1,  // its fused reading settled within the division; once per box
  kRemoved = 2,   // it left (unseen for 10 images)
};

// What an image changed about the boxes followed.
struct Event {
  EventKind kind = EventKind::kPlaced;
  int track_id = 0;
  std::int64_t time_us = 0;  // of the image, as given to DetectAt
  // For kMeasured: the fused reading, and the images it was measured in.
  float length_mm = 0.0f;
  float width_mm = 0.0f;
  float height_mm = 0.0f;
  float uncertainty_mm = 0.0f;
  int frames = 0;
};

class Interface {
 public:
  // At most this many boxes are reported per image, largest tops first.
  static constexpr int kMaxDetections = 99;
  // The number of boxes the tracker follows at once.
  static constexpr int kMaxTrackSlots = 100;
  // The largest image Detect accepts: at most this many pixels a side and
  // in all (2048 x 2048; a frame of 8192 x 8192 would take seconds and
  // gigabytes), as much as the command line's files.
  static constexpr int kMaxImageSide = 4096;
  static constexpr int kMaxImagePixels = 2048 * 2048;

  // A new detector, owned by the caller (delete it). Its intrinsics are those
  // of a 640 x 480 camera of the station's model until set.
  static Interface* CreateInterface();

  virtual ~Interface() = default;

  // The camera's intrinsics (pixels) in whole numbers, as the station program
  // hands them over; the detector uses these values as they are.
  virtual void SetIntrinsics(int fx, int fy, int cx, int cy) = 0;
  virtual int fx() const = 0;
  virtual int fy() const = 0;
  virtual int cx() const = 0;
  virtual int cy() const = 0;
  // The intrinsics as the camera reports them; the whole-number ones above
  // become their truncated values.
  virtual void SetExactIntrinsics(float fx, float fy, float cx, float cy) = 0;

  // Seeds the random floor search of every image with `seed`, so that a run
  // can be repeated exactly; by default each image is seeded from the clock.
  virtual void SetSeed(std::uint32_t seed) = 0;

  // The station's division (mm, 5 by default): a box whose size cannot be
  // told within it is uncertain, and a track's reading is not measured until
  // it is within it. False (and nothing changes) for a value that is not
  // from 0.1 to 1000 mm.
  virtual bool SetDivision(float division_mm) = 0;

  // Finds the boxes in a depth image: `depth` holds width x height samples in
  // millimetres, row after row, 0 where the camera saw nothing; rows are
  // `row_stride` samples apart (0: width). Returns the number of detections,
  // or -1 when the image cannot be used (a null pointer, a size out of range,
  // focal lengths outside 0.1 to 10 times the width, a principal point far
  // from the image), with the reason in LastProblem().
  virtual int Detect(const std::uint16_t* depth, int width, int height, int row_stride = 0) = 0;
  // The same for an image taken at `time_us` (microseconds from any fixed
  // origin): the tracker follows moving boxes by the time between images.
  // Detect counts images as 1/30 s apart.
  virtual int DetectAt(const std::uint16_t* depth, int width, int height, std::int64_t time_us,
                       int row_stride = 0) = 0;
  // The last Detect's detections; false for an index out of range.
  virtual int DetectionCount() const = 0;
  virtual bool GetDetection(int index, Detection* detection) const = 0;
  // Why the last image gave no measured box, or could not be used; "" when
  // it gave one.
  virtual const char* LastProblem() const = 0;
  // The last image's events, in order; false for an index out of range.
  virtual int EventCount() const = 0;
  virtual bool GetEvent(int index, Event* event) const = 0;
  // Forgets every box followed, without events; track ids keep counting up.
  virtual void ResetTracks() = 0;

  // The floor the last images stood on, as n . p + offset = height above it
  // (mm, n a unit vector towards the camera); false before one is found.
  virtual bool GetFloor(float normal[3], float* offset) const = 0;
  // Forgets the floor: the next image searches for it anew (after the
  // camera was moved, say; a floor that no longer fits is re-found anyway).
  virtual void ResetFloor() = 0;
};

// The name of a status: "measured", "partial", "irregular", "too_small",
// "uncertain".
const char* DetectionStatusName(DetectionStatus status);
// The name of an event: "placed", "measured", "removed".
const char* EventKindName(EventKind kind);

}  // namespace boxdim
