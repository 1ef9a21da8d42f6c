// The image utility interface: a box detector and tracker over 640 x 480
// depth images, behind an exported abstract class. The program creates one
// instance at start-up and hands it the camera intrinsics.
#pragma once

namespace boxdim {

class Interface {
 public:
  static Interface* CreateInterface();

  virtual ~Interface() = default;

  // The camera intrinsics in whole pixels.
  virtual void SetIntrinsics(int fx, int fy, int cx, int cy) = 0;
  virtual int fx() const = 0;
  virtual int fy() const = 0;
  virtual int cx() const = 0;
  virtual int cy() const = 0;
};

}  // namespace boxdim
