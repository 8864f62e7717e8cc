// Script splitting, key reading and the command members of the processor.
#include "command/OrbImageProc.h"

#include <climits>
#include <cwchar>
#include <memory>

#include "ops/filter/ImgFilterSharp.h"
#include "ops/level/ImgBright.h"
#include "ops/level/ImgToneCurve.h"

namespace {
const wchar_t* const kSeparators = L";\n\r";
const wchar_t* const kBlanks = L" \t";
const wchar_t* const kPlaneSuffix[3] = {L"_R", L"_G", L"_B"};

// The ten per-plane argument arrays of the sharpening members, in their order.
struct SharpArgs {
  double radius[3], weight[3];
  int minOn[3];
  double min[3], minBuf[3];
  int maxOn[3];
  double max[3], maxBuf[3];
  int brighterOn[3];
  double brighter[3];
};

double ClampRadius(double r) {
  if (r > 50.0) return 50.0;
  if (!(r >= 0.1)) return 0.1;  // also catches NaN, which no filter kernel can be sized from
  return r;
}
}  // namespace

void COrbImageProc::SetImagePtr(COrbImage* image, COrbImage* work) {
  m_image = image;
  if (work) m_work = work;
}

void COrbImageProc::SetUndoBufPtr(COrbImage* work) { m_work = work; }

int COrbImageProc::Do(CString text, int progress) {
  if (!m_image || !m_work) return 0;
  CString rest = text;
  for (;;) {
    const int sep = rest.FindOneOf(kSeparators);
    CString command;
    bool last = false;
    if (sep < 0) {
      if (rest.IsEmpty()) break;
      command = rest;
      last = true;
    } else {
      command = rest.Left(sep);
      rest = rest.Mid(sep);
      rest.TrimLeft(kSeparators);
    }

    CString name, args;
    if (!SpritCmd(command, name, args)) return 0;

    int ok = 1;
    if (Same(name, L"LEVEL")) {
      ok = Level(args);
    } else {
      m_image->Swap(m_work);
      if (Same(name, L"SHARP")) ok = Sharp(args, progress);
      if (Same(name, L"DIGITALDEVELOPMENT")) ok = DigitalDevelopment(args, progress);
      if (Same(name, L"BRIGHTNESSCONTRAST")) ok = BrightnessContrast(args, progress);
      if (Same(name, L"HALPHA")) ok = HAlpha(args, progress);
      if (Same(name, L"HALPHAAUTOLEVEL")) ok = HAlphaAutoLevel(args, progress);
    }
    if (!ok) return 0;
    if (last) break;
  }
  return 1;
}

int COrbImageProc::Do(COrbImage* image, CString text, int progress) {
  if (!image) return 0;
  m_image = image;
  // The copy carries the pixels, levels, standard points and statistics; markers stay behind.
  auto work = std::make_unique<COrbImage>(*image, nullptr, nullptr);
  m_work = work.get();
  int result = 0;
  try {
    result = Do(text, progress);
  } catch (...) {
    m_work = nullptr;
    throw;
  }
  image->ClearFilterProc();
  work->ClearFilterProc();
  // The temporary is gone; keeping its address would let a later Do(text) use freed memory.
  m_work = nullptr;
  return result;
}

int COrbImageProc::SpritCmd(CString command, CString& name, CString& args) {
  command.TrimLeft(kBlanks);
  const int blank = command.FindOneOf(kBlanks);
  if (blank < 0) return 0;
  name = command.Left(blank);
  name.TrimRight(kBlanks);
  args = command.Mid(blank);
  return 1;
}

int COrbImageProc::Same(CString a, CString b) { return a.CollateNoCase(b) == 0 ? 1 : 0; }

int COrbImageProc::find(CString args, CString key) {
  return (args.Find(key + L"=") >= 0 || args.Find(key + L" =") >= 0 || args.Find(key + L"\t=") >= 0) ? 1 : 0;
}

CString COrbImageProc::atos(CString args, CString key) {
  const int start = args.Find(key);
  if (start < 0) return CString();
  const int eq = args.Find(L'=', start);
  if (eq < 0) return CString();
  CString written = args.Mid(start, eq - start);
  written.TrimRight(kBlanks);
  if (!Same(written, key)) return CString();
  CString value = args.Mid(eq + 1);
  const int end = value.FindOneOf(kBlanks);
  if (end >= 0) value = value.Left(end);
  value.Trim(kBlanks);
  return value;
}

int COrbImageProc::atob(CString args, CString key, int def) {
  const CString value = atos(args, key);
  if (value.IsEmpty()) return def;
  return Same(value, L"TRUE");
}

int COrbImageProc::atoi(CString args, CString key, int def) {
  const CString value = atos(args, key);
  if (value.IsEmpty()) return def;
  const long v = std::wcstol(value.GetString(), nullptr, 10);
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

double COrbImageProc::atof(CString args, CString key, double def) {
  const CString value = atos(args, key);
  if (value.IsEmpty()) return def;
  return std::wcstod(value.GetString(), nullptr);
}

int COrbImageProc::Level(CString args) {
  COrbImage* image = m_image;
  if (image->GetPlanes() < 3) {
    const double min = atof(args, L"MIN", image->GetLevelMin(0));
    const double max = atof(args, L"MAX", image->GetLevelMax(0));
    image->SetLevel(0, min, max);
    m_work->SetLevel(0, min, max);
    return 1;
  }
  // MIN and MAX have no effect on a colour image.
  double min[3], max[3];
  min[0] = atof(args, L"MIN_R", image->GetLevelMin(0));
  max[0] = atof(args, L"MAX_R", image->GetLevelMax(0));
  min[1] = atof(args, L"MIN_G", image->GetLevelMin(1));
  max[1] = atof(args, L"MAX_G", image->GetLevelMax(1));
  // Blue has no keys of its own: it follows the green ones when they are written.
  min[2] = atof(args, L"MIN_G", image->GetLevelMin(2));
  max[2] = atof(args, L"MAX_G", image->GetLevelMax(2));
  for (int p = 0; p < 3; ++p) {
    image->SetLevel(p, min[p], max[p]);
    m_work->SetLevel(p, min[p], max[p]);
  }
  return 1;
}

int COrbImageProc::Sharp(CString args, int progress) {
  COrbImage* image = m_image;
  const CString method = atos(args, L"METHOD");
  SharpArgs a;
  const double radius = atof(args, L"RADIUS", 1.0);
  const double weight = atof(args, L"WEIGHT", 1.0);
  const double minBuf = atof(args, L"THRESHOLD_MIN_BUF", 0.0);
  const double maxBuf = atof(args, L"THRESHOLD_MAX_BUF", 0.0);
  const double brighter = atof(args, L"BRIGHTER", 0.0);
  // Writing the plane-free key switches its step on for every plane.
  const int minOnAll = find(args, L"THRESHOLD_MIN");
  const int maxOnAll = find(args, L"THRESHOLD_MAX");
  const int brighterOnAll = find(args, L"BRIGHTER");
  const int planes = image->GetPlanes() < 3 ? 1 : 3;
  for (int p = 0; p < 3; ++p) {
    const CString s = kPlaneSuffix[p];
    // A grey image has no window for planes 1 and 2; its plane-0 window stands in.
    const int lp = p < planes ? p : 0;
    a.radius[p] = ClampRadius(atof(args, L"RADIUS" + s, radius));
    a.weight[p] = atof(args, L"WEIGHT" + s, weight);
    a.minOn[p] = minOnAll || find(args, L"THRESHOLD_MIN" + s);
    a.min[p] = atof(args, L"THRESHOLD_MIN" + s, atof(args, L"THRESHOLD_MIN", image->GetLevelMin(lp)));
    a.minBuf[p] = atof(args, L"THRESHOLD_MIN_BUF" + s, minBuf);
    a.maxOn[p] = maxOnAll || find(args, L"THRESHOLD_MAX" + s);
    a.max[p] = atof(args, L"THRESHOLD_MAX" + s, atof(args, L"THRESHOLD_MAX", image->GetLevelMax(lp)));
    a.maxBuf[p] = atof(args, L"THRESHOLD_MAX_BUF" + s, maxBuf);
    a.brighterOn[p] = brighterOnAll || find(args, L"BRIGHTER" + s);
    a.brighter[p] = atof(args, L"BRIGHTER" + s, brighter);
  }
  using Scalar = void (CImgFilterSharp::*)(double, double, int, double, double, int, double, double, int, double,
                                           COrbImage*, CRect*, int);
  using Planes = void (CImgFilterSharp::*)(double*, double*, int*, double*, double*, int*, double*, double*, int*,
                                           double*, COrbImage*, CRect*, int);
  Scalar scalar = nullptr;
  Planes perPlane = nullptr;
  if (Same(method, L"STANDARD")) {
    scalar = &CImgFilterSharp::SharpFilter;
    perPlane = &CImgFilterSharp::SharpFilter;
  } else if (Same(method, L"EDGEONLY")) {
    scalar = &CImgFilterSharp::SharpEdgeFilter;
    perPlane = &CImgFilterSharp::SharpEdgeFilter;
  } else if (Same(method, L"UNSHARPMASK")) {
    scalar = &CImgFilterSharp::UnSharpMask;
    perPlane = &CImgFilterSharp::UnSharpMask;
  } else {
    return 1;  // an unknown method is not an error
  }
  auto* target = static_cast<CImgFilterSharp*>(image);
  if (planes == 1)
    (target->*scalar)(a.radius[0], a.weight[0], a.minOn[0], a.min[0], a.minBuf[0], a.maxOn[0], a.max[0],
                      a.maxBuf[0], a.brighterOn[0], a.brighter[0], m_work, nullptr, progress);
  else
    (target->*perPlane)(a.radius, a.weight, a.minOn, a.min, a.minBuf, a.maxOn, a.max, a.maxBuf, a.brighterOn,
                        a.brighter, m_work, nullptr, progress);
  return 1;
}

int COrbImageProc::DigitalDevelopment(CString args, int /*progress*/) {
  const CString letters = L"RGB";
  [[maybe_unused]] int maskPlane[3];
  for (int p = 0; p < 3; ++p) {
    const CString value = atos(args, CString(L"MASK_") + CString(letters[p]));
    const int found = value.IsEmpty() ? -1 : letters.Find(value.GetString());
    maskPlane[p] = found >= 0 ? found : p;
  }
  return 1;
}

int COrbImageProc::BrightnessContrast(CString args, int progress) {
  COrbImage* image = m_image;
  // The mean is a pass over the image, so it is only measured when AVERAGE is not written.
  double average;
  if (atos(args, L"AVERAGE").IsEmpty()) {
    average = image->GetPlanes() < 3
                  ? image->GetAvrGray256f(0)
                  : (image->GetAvrGray256f(2) + image->GetAvrGray256f(1) + image->GetAvrGray256f(0)) / 3;
  } else {
    average = atof(args, L"AVERAGE", 0.0);
  }
  float brightness[3], contrast[3];
  for (int p = 0; p < 3; ++p) {
    brightness[p] = static_cast<float>(atof(args, L"BRIGHTNESS", 0.0));
    contrast[p] = static_cast<float>(atof(args, L"CONTRAST", 0.0));
  }
  static_cast<CImgBright*>(image)->Do(brightness, contrast, average, m_work, nullptr, progress);
  return 1;
}

int COrbImageProc::HAlpha(CString args, int progress) {
  const double threshold = atof(args, L"THRESHOLD", 0.0);
  const double brightness = atof(args, L"BRIGHTNESS", 0.0);
  static_cast<CImgToneCurve*>(m_image)->DoHAlpha(threshold, brightness, m_work, nullptr, progress);
  return 1;
}

int COrbImageProc::HAlphaAutoLevel(CString args, int /*progress*/) {
  const double mag = atof(args, L"MAG", 0.0);
  static_cast<CImgToneCurve*>(m_image)->DoHAlphaLevel(mag, m_work);
  return 1;
}
