// CVelmora: the exported class. It holds nothing; both assignments share one body.
#include "frame_internal.h"

CVelmora::CVelmora() = default;

namespace {

CVelmora& AssignNothing(CVelmora& self) { return self; }

}  // namespace

CVelmora& CVelmora::operator=(const CVelmora& /*other*/) { return AssignNothing(*this); }

CVelmora& CVelmora::operator=(CVelmora&& /*other*/) { return AssignNothing(*this); }
