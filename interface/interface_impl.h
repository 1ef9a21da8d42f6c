// The one implementation of Interface.
#pragma once

#include "interface/interface.h"

namespace boxdim {

class InterfaceImpl : public Interface {
 public:
  void SetIntrinsics(int fx, int fy, int cx, int cy) override;
  int fx() const override { return fx_; }
  int fy() const override { return fy_; }
  int cx() const override { return cx_; }
  int cy() const override { return cy_; }

 private:
  int fx_ = 0;
  int fy_ = 0;
  int cx_ = 0;
  int cy_ = 0;
};

}  // namespace boxdim
