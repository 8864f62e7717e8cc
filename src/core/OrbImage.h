// The library's image: float planes with display levels, markers, progress and filter state.
#pragma once
#include <atomic>
#include <memory>

#include "container/Image.h"
#include "core/fPoint.h"
#include "kernels/FilterProc.h"
#include "kernels/FilterProcEx.h"
#include "platform/Rect.h"

class CFilterMatrix;
class CMemoryDIB;

/// Progress message codes (wParam of WM_QRN_PROGRESS).
enum ProgressCode : WPARAM {
  kProgressInit = 0,
  kProgressStep = 1,
  kProgressEnd = 2,
  kProgressMessage = 4,
  kProgressSetHeader = 12,
  kProgressClearHeader = 13,
};

/// @brief An image of 32-bit float samples (bits -32, bscale 1, bzero 0) with one or three
/// planes. Every operation class derives from it without adding data and is applied by
/// calling its members on the image itself.
///
/// Value scales: raw is the stored float; gray = raw − level minimum; 256f = (raw − minimum)
/// / range × 255 (not clamped); bright = 0.299 R + 0.587 G + 0.114 B. Pixel accessors do not
/// check coordinates.
///
/// Progress: operations send WM_QRN_PROGRESS to the window set with SetProgressHandle and
/// stop early when ShowProgress returns 0 (Escape queued on the calling thread).
class COrbImage : public CImage {
 public:
  static constexpr int kBackgroundRects = 32;
  static constexpr int kFilterSlots = 6;

  // ---- Construction and copying -------------------------------------------------------
  COrbImage();
  COrbImage(int bits, int width, int height, int planes, double bscale = 1.0, double bzero = 0.0,
            int allocate = 1, HWND window = nullptr, const wchar_t* text = nullptr);
  /// Deep copy carrying the progress window, standard points and centre, and statistics;
  /// markers start at (0, 0) and empty rectangles. Throws CMemoryException when memory runs out.
  COrbImage(const COrbImage& other, HWND window = nullptr, const wchar_t* text = nullptr);
  COrbImage& operator=(const COrbImage& other);
  ~COrbImage() override;

  void Init();
  /// Replaces this image by a copy of other (fields as the copy constructor).
  /// Throws CMemoryException when the pixel copy fails; returns nonzero otherwise.
  int CopyImage(const COrbImage& other, HWND window = nullptr, const wchar_t* text = nullptr);
  /// Same size, format and planes as other, every sample 0; returns 0 on failure.
  int Create(const COrbImage& other, HWND window = nullptr, const wchar_t* text = nullptr);
  std::unique_ptr<COrbImage> Clone(HWND window = nullptr, const wchar_t* text = nullptr) const;
  /// A zeroed image of the same geometry, or null when memory runs out.
  std::unique_ptr<COrbImage> CloneWithoutImage(HWND window = nullptr, const wchar_t* text = nullptr) const;
  /// Exchanges pixels and the fields that copying carries; markers, progress counters,
  /// filter state and settings key stay with their object.
  void Swap(COrbImage* other);
  void CopyStdPtCtr(const COrbImage* other);
  int AttachDIB(HGLOBAL dib) { return CImage::AttachDIB(dib); }

  // ---- Statistics fields -------------------------------------------------------------
  float GetMinPixel(int plane) const { return m_minPixel[plane]; }
  float GetMaxPixel(int plane) const { return m_maxPixel[plane]; }
  float GetAvrPixel(int plane) const { return m_avrPixel[plane]; }

  // ---- Markers -----------------------------------------------------------------------
  const CfPoint& GetStdPt(int i) const { return m_stdPt[i]; }
  /// Point 0 also moves the standard centre.
  void SetStdPt(int i, const CfPoint& p);
  void ClearStdPt(int i) { SetStdPt(i, CfPoint(-1, -1)); }
  int GetStdPtNum() const;
  const CfPoint& GetStdCtr() const { return m_stdCtr; }
  void SetStdCtr(const CfPoint& p) { m_stdCtr = p; }
  void SetDefaultCenter();
  bool IsStdCtrValid() const { return m_stdCtr.IsValid(); }

  /// Rectangle i, or an empty one for i above 31.
  CRect GetBkgRect(int i) const;
  void SetBkgRect(int i, const CRect& r);
  void ClearBkgRect(int i);
  bool IsBkgRectValid(int i) const;
  /// Counts the valid rectangles among 0 and 1 only.
  int GetBkgRectNum() const;

  CPoint GetStarPt() const { return m_starPt; }
  void SetStarPt(const CPoint& p) { m_starPt = p; }
  void ClearStarPt() { m_starPt.x = -1; }
  bool IsStarPtValid() const { return m_starPt.x >= 0 || m_starPt.y >= 0; }

  void GetSkyPt(CPoint& p, int& radius) const { p = m_skyPt; radius = m_skyRadius; }
  void SetSkyPt(const CPoint& p, int radius) { m_skyPt = p; m_skyRadius = radius; }
  void ClearSkyPt() { m_skyPt.x = -1; m_skyRadius = 0; }
  bool IsSkyPtValid() const { return (m_skyPt.x >= 0 || m_skyPt.y >= 0) && m_skyRadius > 0; }

  CPoint GetPickupPt() const { return m_pickupPt; }
  void SetPickupPt(const CPoint& p) { m_pickupPt = p; }
  bool IsPickupPtValid() const { return m_pickupPt.x >= 0 && m_pickupPt.y >= 0; }

  const CfPoint& GetCrossGaugePt() const { return m_crossGauge; }
  void SetCrossGaugePt(double x, double y) { m_crossGauge.Set(x, y); }
  int IsShowCrossGauge() const { return m_showCrossGauge; }
  void ShowCrossGauge(int flag) { m_showCrossGauge = flag; }

  const CString& GetRegKey() const { return m_regKey; }
  void SetRegKey(const CString& key) { m_regKey = key; }

  // ---- Value scales ------------------------------------------------------------------
  float* GetImageAdr(int x, int y, int plane, int flags = VM_READONLY, LOCKHANDLE* lock = nullptr) const {
    return static_cast<float*>(CImage::GetImageAdr(x, y, plane, flags, lock));
  }

  static double CalcBright(double r, double g, double b) { return 0.299 * r + 0.587 * g + 0.114 * b; }
  static float CalcBright(float r, float g, float b) { return 0.299f * r + 0.587f * g + 0.114f * b; }
  float To256(float value, int plane) const;
  double To256(double value, int plane) const;
  float ToRaw(float value, int plane) const;
  double ToRaw(double value, int plane) const;

  float GetPixelGrayRaw(int x, int y, int plane) const { return *GetImageAdr(x, y, plane); }
  static float GetPixelGrayRaw(const float* p) { return *p; }
  float GetPixelGray(int x, int y, int plane) const { return GetPixelGray(GetImageAdr(x, y, plane), plane); }
  float GetPixelGray(const float* p, int plane) const { return *p - static_cast<float>(GetLevelMin(plane)); }
  float GetPixelGray256f(int x, int y, int plane) const { return GetPixelGray256f(GetImageAdr(x, y, plane), plane); }
  float GetPixelGray256f(const float* p, int plane) const {
    return static_cast<float>((*p - GetLevelMin(plane)) / GetLevelRange(plane) * 255.0);
  }
  static float GetPixelGray256f(const float* p, float min, float scale) { return (*p - min) * scale; }
  /// Display byte: 0 at or below the minimum, 255 at or above the maximum, else truncated 256f.
  BYTE GetPixelGray256(int x, int y, int plane) const;
  static BYTE GetPixelGray256(const float* p, float min, float max, float scale) {
    const float v = *p;
    if (v <= min) return 0;
    if (v >= max) return 255;
    return static_cast<BYTE>((v - min) * scale);
  }
  float GetPixelBright256f(int x, int y) const;
  float GetPixelBright256f(const float* r, const float* g, const float* b) const;
  float GetPixelBrightRaw(int x, int y) const;
  float GetPixelBrightRaw(const float* r, const float* g, const float* b) const;

  void SetPixelGrayRaw(int x, int y, float value, int plane) { *GetImageAdr(x, y, plane, 0) = value; }
  static void SetPixelGrayRaw(float* p, float value) { *p = value; }
  void SetPixelGray(int x, int y, float value, int plane) { SetPixelGray(GetImageAdr(x, y, plane, 0), value, plane); }
  void SetPixelGray(float* p, float value, int plane) const {
    *p = static_cast<float>(GetLevelMin(plane) + value);
  }
  void SetPixelGray256f(int x, int y, float value, int plane) {
    SetPixelGray256f(GetImageAdr(x, y, plane, 0), value, plane);
  }
  void SetPixelGray256f(float* p, float value, int plane) const {
    *p = static_cast<float>(value / 255.0 * GetLevelRange(plane) + GetLevelMin(plane));
  }

  // Sub-pixel reads: bilinear between the four neighbours; beyond the last column or row
  // the last one is read exactly.
  float GetPixelGrayRaw(double x, double y, int plane) const;
  float GetPixelGray(double x, double y, int plane) const;
  float GetPixelGray256f(double x, double y, int plane) const;
  /// As GetPixelGrayRaw(double, double, plane), remembering the two rows last used. Call
  /// GetPixelGrayRawBufInit() first and whenever the plane changes.
  float GetPixelGrayRawBuf(double x, double y, int plane);
  void GetPixelGrayRawBufInit();

  // Transformed reads: the value that destination pixel (x, y) takes under a shift
  // (dx, dy) and a rotation and scale about the standard centre. Plane -1 of a colour image
  // reads the bright value. Outside the source, *isOutside = 1 and outside is returned.
  float GetPixelGray256f(int x, int y, double dx, double dy, double sine, double cosine, double scale, int plane,
                         float outside, int nearest, int* isOutside, double* srcX, double* srcY) const;
  float GetPixelGray256f(int x, int y, int dx, int dy, double sine, double cosine, double scale, int plane,
                         float outside, int nearest, int* isOutside, double* srcX, double* srcY) const;
  float GetPixelGrayRaw(int x, int y, double dx, double dy, double sine, double cosine, double scale, int plane,
                        float outside, int nearest, int* isOutside, double* srcX, double* srcY) const;
  float GetPixelGrayRaw(int x, int y, int dx, int dy, double sine, double cosine, double scale, int plane,
                        float outside, int nearest, int* isOutside, double* srcX, double* srcY) const;
  /// Bilinear colour read about the standard centre (useStdCtr nonzero) or the image centre.
  void GetPixelRgb256f(int x, int y, double dx, double dy, double sine, double cosine, int useStdCtr, double scale,
                       double* r, double* g, double* b, double outside, int* isOutside, double* srcX,
                       double* srcY) const;
  void GetPixelRgbRaw(int x, int y, double dx, double dy, double sine, double cosine, int useStdCtr, double scale,
                      double* r, double* g, double* b, double outside, int* isOutside, double* srcX,
                      double* srcY) const;

  // ---- Levels and areas --------------------------------------------------------------
  /// Plane -1 moves every plane of a colour image in proportion to plane 0's change.
  int SetLevel(int plane, double min, double max);
  /// Clips r (null: whole image) to the image; right and bottom are exclusive.
  void NormalizeRect(const CRect* r, int& left, int& top, int& right, int& bottom) const;
  /// Copies a w × h block of src at (sx, sy) to (x, y), clipped to both images; rescale
  /// carries each value through both images' display scales.
  void PixelBlt(int x, int y, int w, int h, const COrbImage* src, int sx, int sy, int rescale);

  // ---- Progress ----------------------------------------------------------------------
  void SetProgressHandle(HWND window) { m_progressWindow = window; }
  HWND GetProgressHandle() const { return m_progressWindow; }
  void ShowProgressInit(int enable, const wchar_t* title, int total);
  void ShowProgressInit(int enable, int titleId, int total);
  /// Indeterminate mode: every report passes its argument straight through.
  void ShowProgressInit(const wchar_t* title);
  void ShowProgressInit(int titleId);
  /// Reports units of work; returns 0 when the user asked to cancel (Escape), else 1.
  /// Safe from worker threads: only the calling thread's queue is pumped.
  int ShowProgress(int units);
  void ShowProgressEnd(const wchar_t* text);
  void ShowProgressEnd(int textId);
  void ShowProgressMsg(const wchar_t* text);
  void ShowProgressMsg(int textId);
  void ShowProgressSetHeader(const wchar_t* text);
  void ShowProgressClearHeader();
  bool IsProgressEnabled() const { return m_progressEnabled != 0; }

  // ---- Statistics ------------------------------------------------------------------
  void CalcMinMax();
  void CalcMinMax(int margin);
  float CalcAvr(int plane);
  float CalcStdDev(int plane, const float* mean);
  /// The plane's sum over (width − 1)(height − 1), as float. Each line is summed in double in
  /// CRowSum::Interleaved's fixed association and the lines are added in order, so the result
  /// has the same bits on any number of threads and vector width.
  float GetAvrGrayRaw(int plane);
  float GetAvrGray(int plane);
  float GetAvrGray256f(int plane);
  static int GetHeightOfHistogram(const int* bins, int count);
  float GetMaxPixel(int plane, CRect* rect, int& x, int& y);
  int GetHistogram(int* bins, int count, double low, double high, int plane, int logScale, int peakHeight,
                   int useCull, CRect* rect, int showProgress, int titleId);
  void ThresholdLessThan(int plane, float threshold, float value);
  void ThresholdLessThanEqual(int plane, float threshold, float value);
  void ThresholdGreaterThan(int plane, float threshold, float value);
  void ThresholdGreaterThanEqual(int plane, float threshold, float value);
  void ThresholdEqual(int plane, float threshold, float value);
  void ThresholdNotEqual(int plane, float threshold, float value);
  void CutOutOfLevel();
  void LiftUp(int lines);

  // Luminance of a colour image: each plane is first brought to plane 0's level scale,
  // raw' = (raw - min_p) * range_0 / range_p + min_0, then Y = 0.299 R' + 0.587 G' + 0.114 B'
  // in double. With equal level windows this is the plain luminance of the raw samples.
  // Used by GetHistogram with plane -1 and by every luminance statistic.
  /// Per-plane factor and offset of that mapping (three each); a zero range maps with factor 1.
  void GetLuminanceScale(double* factor, double* offset) const;
  static double CalcLuminance(const double* factor, const double* offset, float r, float g, float b) {
    return CalcBright(factor[0] * r + offset[0], factor[1] * g + offset[1], factor[2] * b + offset[2]);
  }

  /// @brief Histograms of the three planes in one pass, with the binning, log scale, cull and
  /// progress rules of GetHistogram applied to each plane over the same [low, high]. A null
  /// array skips its plane; a grey image fills every non-null array from plane 0. Returns the
  /// display height: trunc(2 w h / count), or with peakHeight the largest bin of the three.
  int GetHistogramRGB(int* binsR, int* binsG, int* binsB, int count, double low, double high, int logScale,
                      int peakHeight, int useCull, CRect* rect, int showProgress, int titleId);
  /// @brief Intensity-weighted centre of a star in rect (null: whole image), pixel centres at
  /// integer coordinates. The local background is the median of the rectangle's one-pixel
  /// frame; weights are the samples above it (plane 0, or the luminance of a colour image).
  /// Returns 1, or 0 leaving x and y untouched when the rectangle is empty or nothing lies
  /// above the background.
  int GetCentroid(double& x, double& y, CRect* rect);
  /// The centre of GetCentroid rounded to the nearest pixel.
  int GetCentroid(int& x, int& y, CRect* rect);
  /// @brief GetCentroid repeated with a window of rect's size re-centred on each estimate
  /// (clipped to the image), until it moves less than 0.01 pixel or 10 times: for a star that
  /// is not in the middle of the rectangle the caller drew. Same results as GetCentroid.
  int GetCentroid2(double& x, double& y, CRect* rect);
  /// @brief Intensity-weighted centre of the raw samples of plane (-1: luminance of a colour
  /// image) with no background removed; negative samples weigh 0. For images whose
  /// background has already been subtracted. Returns 0 (x, y untouched) when nothing weighs.
  int GetCentroidRaw(double& x, double& y, int plane, CRect* rect);
  /// Parameters of a star profile: centre x, y, Gaussian sigma, peak above background,
  /// background, and FWHM (2 sqrt(2 ln 2) sigma).
  enum FitPrm { kFitX = 0, kFitY, kFitSigma, kFitPeak, kFitBackground, kFitFwhm, kFitCount };
  /// @brief Least-squares fit of a circular Gaussian plus a constant background to the samples
  /// of plane (-1: luminance) in rect, started from GetFitPrmFromCentroid and refined by
  /// damped Gauss-Newton steps on all five parameters. prm receives kFitCount values. Returns
  /// 1, or 0 (prm untouched) for an empty rectangle, fewer than 6 samples or no star.
  int GetFitPrm(double* prm, int plane, CRect* rect);
  /// @brief The Gaussian of a star whose centre is given: background = median of the
  /// rectangle's frame, sigma from the second moment of the samples above it, peak the
  /// least-squares height of that Gaussian. Quick, but a rectangle that cuts the wings short
  /// underestimates sigma; GetFitPrm refines it. Return and prm as GetFitPrm.
  int GetFitPrmFromCentroid(double* prm, double cx, double cy, int plane, CRect* rect);
  /// @brief First sample of plane (-1: luminance) in rect, lines top to bottom and each left
  /// to right, that is strictly brighter than level; its position goes to x, y. Returns 1, or
  /// 0 with x = y = -1 when there is none (a NaN sample is never brighter).
  int Get1stBrighterPixel(int plane, CRect* rect, double level, int& x, int& y);
  /// @brief Sets to 0 every sample whose mask sample is 0 (mask plane p, or plane 0 when the
  /// mask has one plane); other samples stay. The mask must have this image's size. Lines
  /// run in parallel, four samples at a time where vectors are available. Returns 0 when the
  /// mask is missing or of another size, else 1.
  int ApplyMask_Do0_x(const COrbImage* mask, int showProgress);

  // ---- Colour and plane conversion -------------------------------------------------
  /// One plane holding the bright value of src (taken on src's display scale, brought to
  /// this image's raw scale). Nothing when this image already has one plane. 0 when the plane
  /// change fails or src is null or of another size.
  int ToGray(COrbImage* src, int showProgress);
  int ToColor();
  /// Three planes copied raw from src (its one plane into all three). 0 as ToGray.
  int ToColor(COrbImage* src, int showProgress);

  // L*a*b* planes. The colour of a pixel enters CColor::RgbToLab as each plane's display
  // value divided by 255 (0 at the level minimum, 1 at the maximum, not clamped); a
  // single-plane image is a neutral grey. The new images are owned by the caller; null when
  // memory runs out. L planes get levels 0 .. 100, a and b planes -100 .. 100.
  /// L* of every pixel as a new single-plane image.
  COrbImage* MakeLPlane();
  /// L*, a* and b* of every pixel as planes 0, 1 and 2 of a new image.
  COrbImage* MakeLabPlane();
  /// a* (which = 0) or b* (which nonzero) of every pixel as a new single-plane image.
  COrbImage* MakeAbPlane(int which);
  /// L* of pixel (x, y) with explicit level windows: channel k enters as
  /// (raw_k − min_k) / range_k; a range that is not positive gives 0 for its channel.
  /// Coordinates are not checked.
  float GetPixelL(int x, int y, double minR, double minG, double minB, double rangeR, double rangeG,
                  double rangeB);
  /// a* and b* of pixel (x, y) as GetPixelL; the blue range is the last argument.
  void GetPixelAb(int x, int y, double minR, double minG, double minB, double rangeR, double rangeG, double* a,
                  double* b, double rangeB);

  // ---- Display bitmaps -------------------------------------------------------------
  /// Packed bitmap (8 or 24 bits) of the image through its levels; the caller frees it.
  /// Bytes follow the display rule (0 at or below the minimum, 255 at or above the maximum,
  /// truncated 256f between; NaN samples give 0). A colour image in 8 bits is reduced to an
  /// adaptive 256-colour palette (CPaletteQuantizer). Null for other bit counts, an empty
  /// image or exhausted memory.
  HGLOBAL GetDib(int bits);
  /// Renders the area rect (null: whole image) into dib at the same coordinates, clipped to
  /// both: image pixel (x, y) becomes bitmap pixel (x, y), so a view can refresh part of an
  /// image-sized bitmap. 8-bit bitmaps take the plane-0 byte of a grey image; a colour image
  /// gets an adaptive palette of the area written into the bitmap's colour table. 24- and
  /// 32-bit bitmaps take blue, green, red bytes. Returns 0 for a null or unsupported bitmap.
  int ToDIB(CMemoryDIB* dib, CRect* rect, int showProgress);

  // ---- Calibration -----------------------------------------------------------------
  // Dark and flat frames are not compared with this image: they must be at least as large
  // (debug builds assert it), so callers that load frames from files check sizes first. A
  // grey frame serves every plane of a colour image through its plane 0; a colour frame
  // serves plane by plane. Planes run in sequence and rows in parallel, one progress unit
  // per row and plane; nothing is reported and the calls cannot be cancelled.
  /// v ← v − d, a result ≤ 0 becoming 0 (progress title 6106). A null dark does nothing.
  void DarkClbrtn(COrbImage* dark, int progress);
  /// v ← m · v / f where f > 0, else v stays; m = GetAvrGrayRaw(0) of the flat serves every
  /// plane, also of a colour flat (progress title 6105). A null flat does nothing.
  void FlatClbrtn(COrbImage* flat, int progress);
  /// Runs CalcMinMax on the flat; per plane, with lo, hi, m its minimum, maximum and
  /// GetAvrGrayRaw: v ← m' · v / (f' + m' · pedestal) where that divisor is > 0, f' and m'
  /// passed through FlatGamma(·, hi, 2 lo − hi, gamma) when gamma > 0. A plane whose flat has
  /// lo = hi leaves that plane and every later one undivided (progress title 6105).
  void FlatClbrtn(COrbImage* flat, float pedestal, double gamma, int progress);
  /// Dark and flat in one pass from src (null: this image, in place) into the rectangle of
  /// this image (null: whole image), with the rules above, except that a dark-subtracted
  /// value that is not > 0 (NaN included) becomes 0. A null dark or flat switches its step
  /// off. flatMin, flatMax and flatMean hold one entry per plane of a colour flat (entry 0
  /// serves a grey one); when any of them is null the flat's own statistics are measured
  /// (CalcMinMax, GetAvrGrayRaw), which rewrites the flat's stored statistics. src must have
  /// this image's geometry and planes (progress title 6195).
  void DarkFlat(COrbImage* src, COrbImage* dark, COrbImage* flat, float* flatMin, float* flatMax, float* flatMean,
                float pedestal, double gamma, CRect* rect, int progress);
  /// pow((v − bottom)/(top − bottom), gamma) · (top − bottom) + bottom in double: top and
  /// bottom stay fixed, gamma > 1 deepens the fall-off below top, gamma < 1 softens it.
  static float FlatGamma(float v, float top, float bottom, double gamma);

  // ---- Filter state ----------------------------------------------------------------
  int MakeFilterProc(COrbImage* src, CFilterMatrix* m, int plane, int normalise);
  int MakeFilterProcEx(int slot, COrbImage* src, CFilterMatrix* m, int plane, int normalise);
  float CalcFilterProc(int x, int y);
  float CalcFilterProc(int x, int y, int plane);
  /// CalcFilterProc(x + i, y, plane) for i in [0, count), into out: the same values, a line at a time.
  void CalcFilterProcLine(int x, int y, int count, float* out, int plane);
  float CalcFilterProcEx(int slot, int x, int y);
  float CalcFilterProcEx(int slot, int x, int y, int plane);
  void SetFilterProcPln(int plane);
  void SetFilterProcPlnEx(int slot, int plane);
  void ClearFilterProc();

 protected:
  int ToGray();

  // Statistics written by CalcMinMax.
  float m_minPixel[kMaxPlanes] = {};
  float m_maxPixel[kMaxPlanes] = {};
  float m_avrPixel[kMaxPlanes] = {};

 private:
  // CalcMinMax(); with rawMeans, each plane's GetAvrGrayRaw as well, from the same read.
  void CalcMinMaxAndMeans(float* rawMeans);
  // A flat's minimum, maximum and raw mean per plane, for the calibration members.
  void MeasureFlat(float* lo, float* hi, float* mean);
  int ShowProgressContinue();
  void CopyCarriedFields(const COrbImage& other);
  void SwapCarriedFields(COrbImage& other);
  // Source position of destination pixel (x, y) under shift, rotation and scale about (cx, cy).
  static void TransformPoint(double x, double y, double dx, double dy, double sine, double cosine, double scale,
                             double cx, double cy, double* sx, double* sy);
  float ReadTransformed(double sx, double sy, int plane, bool scale256, float outside, int nearest,
                        bool testRounded, int* isOutside) const;
  float ReadNearest(int ix, int iy, int plane, bool scale256) const;
  void ReadRgb(double sx, double sy, bool scale256, double* r, double* g, double* b) const;

  CfPoint m_stdPt[2];
  CfPoint m_stdCtr;
  CRect m_bkgRect[kBackgroundRects];
  CPoint m_starPt;
  CPoint m_skyPt;
  int m_skyRadius = 0;
  CPoint m_pickupPt;
  CfPoint m_crossGauge;
  int m_showCrossGauge = 0;

  HWND m_progressWindow = nullptr;
  int m_progressEnabled = 0;
  int m_progressIndeterminate = 0;
  int m_progressTotal = 0;
  int m_progressStep = 1;
  std::atomic<int> m_progressCounter{0};
  std::atomic<int> m_progressNext{0};

  int m_rowBufY[2] = {-1, -1};
  const float* m_rowBuf[2] = {nullptr, nullptr};

  CFilterProc m_filterProc[kColorPlanes];
  CFilterProc* m_curFilterProc = &m_filterProc[0];
  CFilterProcEx m_filterProcEx[kFilterSlots];
  CString m_regKey;
};
