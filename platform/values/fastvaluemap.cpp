// SPDX-License-Identifier: MIT
#include "values/fastvaluemap.h"

namespace values {

template class FastValueMap<short, levelHandler>;
template class FastValueMap<Bearing, BearingHandler>;
template class FastValueMap<DFSpectrumSample, DFSpectrumSampleHandler>;

} // namespace values
