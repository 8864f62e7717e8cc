// Processing-command scripts: KEY=value commands replayed on an image and its undo copy.
#pragma once
#include "core/OrbImage.h"
#include "platform/String.h"

/// @brief Runs a script of processing commands on an image, keeping the state before each
/// command in a work image that the host uses as its undo copy. The processor owns no pixels.
///
/// Script: commands are separated by ";", line feed or carriage return (runs of them count as
/// one). A command is a name, at least one blank or tab, then KEY=value arguments:
///
///     LEVEL MIN=100 MAX=4000
///     BRIGHTNESSCONTRAST BRIGHTNESS=10 CONTRAST=64; SHARP METHOD=UNSHARPMASK RADIUS=2
///
/// Names compare without regard to case; keys are case-sensitive. Every command but LEVEL
/// first swaps image and work, so that work holds the state before it, then runs with work as
/// its source. Commands: LEVEL (display window of image and work), SHARP, DIGITALDEVELOPMENT,
/// BRIGHTNESSCONTRAST, HALPHA, HALPHAAUTOLEVEL. An unknown name swaps and does nothing.
///
/// Key rules, kept for compatibility with recorded scripts:
///  - only the first occurrence of a key is tried, so a longer key that starts with the same
///    letters and stands earlier hides it ("RADIUS_R=2 RADIUS=5" reads RADIUS as absent);
///  - the value runs from "=" to the next blank or tab, so "KEY= 5" reads as absent;
///  - numbers convert as far as they are numeric (the C library's wcstod and wcstol; 0 when
///    nothing is numeric); integers beyond the int range saturate;
///  - a colour LEVEL sets blue from the green keys (MIN_G, MAX_G): there is no blue key.
///
/// Defaults that come from the image (level windows, the mean for the contrast pivot) are
/// read from image when the command starts, that is after the swap.
///
/// Contract: image and work have the same geometry and number of planes; they are not owned
/// and must outlive the calls. One processor and its images are used by one thread at a time.
class COrbImageProc {
 public:
  COrbImageProc() = default;
  COrbImageProc(const COrbImageProc& other) = default;
  COrbImageProc& operator=(const COrbImageProc& other) = default;
  virtual ~COrbImageProc() = default;

  /// Sets the image; sets the work image only when work is not null.
  void SetImagePtr(COrbImage* image, COrbImage* work = nullptr);
  void SetUndoBufPtr(COrbImage* work);
  COrbImage* GetImagePtr() const { return m_image; }
  COrbImage* GetUndoBufPtr() const { return m_work; }

  /// Runs the commands of text on the image. Returns 1 on success; 0 when the image or the
  /// work image is missing, or at the first command without a blank after its name (an empty
  /// command from a leading separator included). Commands before a failing one stay done.
  /// Unknown names, unknown keys and malformed numbers are accepted silently. An empty text
  /// succeeds.
  int Do(CString text, int progress);
  /// As Do(text, progress) on image, with a temporary copy of it as the work image; the filter
  /// scratch of both is released afterwards. The image stays set; the work pointer is null
  /// afterwards, so a later Do(text, progress) fails until SetUndoBufPtr or SetImagePtr gives a
  /// work image again. Returns 0 when image is null. Throws CMemoryException when the copy
  /// cannot be made.
  int Do(COrbImage* image, CString text, int progress);

 protected:
  /// Splits one command into its name and its arguments (from the first blank or tab on).
  /// Leading blanks and tabs are skipped. Returns 0 when there is no blank or tab after the name.
  int SpritCmd(CString command, CString& name, CString& args);
  /// 1 when a and b are equal ignoring case (locale collation), else 0.
  int Same(CString a, CString b);
  /// 1 when args holds key directly followed by "=", " =" or a tab and "=" (case-sensitive).
  int find(CString args, CString key);
  /// The value of key (see the key rules above), or an empty text.
  CString atos(CString args, CString key);
  /// def when key is absent; 1 when its value is "TRUE" in any case, else 0.
  int atob(CString args, CString key, int def);
  int atoi(CString args, CString key, int def);
  double atof(CString args, CString key, double def);

  /// LEVEL: MIN, MAX (grey); MIN_R, MAX_R, MIN_G, MAX_G (colour; blue takes the green keys).
  /// Defaults are the present windows. Sets image then work, plane by plane. No swap.
  int Level(CString args);
  /// SHARP: METHOD = STANDARD, EDGEONLY or UNSHARPMASK (anything else does nothing); RADIUS
  /// (1.0, clamped per plane to 0.1 .. 50; NaN becomes 0.1), WEIGHT (1.0), THRESHOLD_MIN,
  /// THRESHOLD_MAX (present window; writing either switches that threshold on),
  /// THRESHOLD_MIN_BUF, THRESHOLD_MAX_BUF (0), BRIGHTER (0; writing it switches it on), each
  /// also per plane with the suffix _R, _G or _B.
  int Sharp(CString args, int progress);
  /// DIGITALDEVELOPMENT: reads MASK_R, MASK_G and MASK_B and changes no pixels. Recorded
  /// scripts that hold it replay as a step that only takes an undo slot.
  int DigitalDevelopment(CString args, int progress);
  /// BRIGHTNESSCONTRAST: BRIGHTNESS (0), CONTRAST (0) and AVERAGE, the contrast pivot on the
  /// 0..255 scale (default: the image mean on that scale, averaged over the planes).
  int BrightnessContrast(CString args, int progress);
  /// HALPHA: THRESHOLD (0, a fraction of 255) and BRIGHTNESS (0) of the H-alpha tone curve.
  int HAlpha(CString args, int progress);
  /// HALPHAAUTOLEVEL: MAG (0); window from the work image's minimum to its maximum × MAG.
  int HAlphaAutoLevel(CString args, int progress);

 private:
  COrbImage* m_image = nullptr;
  COrbImage* m_work = nullptr;
};
