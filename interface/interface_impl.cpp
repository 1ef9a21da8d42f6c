#include "interface/interface_impl.h"

namespace boxdim {

Interface* Interface::CreateInterface() { return new InterfaceImpl(); }

void InterfaceImpl::SetIntrinsics(int fx, int fy, int cx, int cy) {
  fx_ = fx;
  fy_ = fy;
  cx_ = cx;
  cy_ = cy;
}

}  // namespace boxdim
