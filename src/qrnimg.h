// Umbrella header: every public class of the library.
#pragma once

#include "Version.h"

#include "platform/Array.h"
#include "platform/Diagnostics.h"
#include "platform/Exceptions.h"
#include "platform/GlobalMemory.h"
#include "platform/MessageWindow.h"
#include "platform/Parallel.h"
#include "platform/QrnSys.h"
#include "platform/Rect.h"
#include "platform/String.h"
#include "platform/registry/Registry.h"

#include "container/Header.h"
#include "container/Image.h"
#include "container/VmHandle.h"
#include "container/VmImage.h"
#include "container/VmManager.h"

#include "core/BaseDIB.h"
#include "core/Color.h"
#include "core/LineLoop.h"
#include "core/MemoryDIB.h"
#include "core/MessageTable.h"
#include "core/OrbImage.h"
#include "core/PaletteQuantizer.h"
#include "core/VmDIB.h"
#include "core/fPoint.h"

#include "kernels/FilterMatrix.h"
#include "kernels/FilterProc.h"
#include "kernels/FilterProcEx.h"

#include "ops/level/ImgAutoLevel.h"
#include "ops/level/ImgAutoStretch.h"
#include "ops/level/ImgBright.h"
#include "ops/level/ImgColorBalance.h"
#include "ops/level/ImgColorCorrect.h"
#include "ops/level/ImgCutOff.h"
#include "ops/level/ImgFalseColor.h"
#include "ops/level/ImgHstEql.h"
#include "ops/level/ImgInvert.h"
#include "ops/level/ImgLabColorEnhance.h"
#include "ops/level/ImgNormalize.h"
#include "ops/level/ImgReduceTone.h"
#include "ops/level/ImgToneCurve.h"
#include "ops/level/ImgWindowing.h"

#include "ops/calibration/ImgCalculation.h"
#include "ops/calibration/ImgDark.h"
#include "ops/calibration/ImgFlat.h"

#include "ops/filter/ImgFilter.h"
#include "ops/filter/ImgFilterSharp.h"
#include "ops/filter/ImgFilterSpecial.h"

#include "command/OrbImageProc.h"

/// Library version as "major.minor.patch".
inline const char* QrnImgVersion() { return QRNIMG_VERSION; }
