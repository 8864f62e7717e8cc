// The image container: sample format, geometry, display levels and the pixel store.
#pragma once
#include <cstddef>
#include <memory>
#include <vector>

#include "container/Header.h"
#include "container/VmImage.h"
#include "platform/GlobalMemory.h"
#include "platform/MessageWindow.h"
#include "platform/Object.h"
#include "platform/String.h"

/// Message number of the progress protocol (WM_USER + 112).
constexpr UINT WM_QRN_PROGRESS = WM_USER + 112;

/// Line-access flags of GetImageAdr.
constexpr int VM_READONLY = 1;
constexpr int VM_LOCK = 2;

/// @brief An image of 1 or 3 planes of samples (4 for a working copy that carries a
/// luminance plane beside its three colours) in one of the formats 8 (unsigned byte),
/// 16 and 32 (integers, signed or not), -32 (float) and -64 (double); physical value =
/// stored × bscale + bzero. Each plane has a display level window (minimum, maximum, range).
///
/// Operations that return int return nonzero on success and zero on failure, including
/// exhausted memory and impossible sizes; nothing here throws. Operations that take a
/// window and a text report the progress of the work to that window (both may be null).
///
/// Line access: GetImageAdr(x, y, plane, flags, lock) gives the address of one sample.
/// The samples of a line are contiguous; lines are not. Flags VM_READONLY promises not to
/// write; VM_LOCK counts a lock whose handle is written to *lock and released with Unlock
/// (UnlockAll releases every lock). Coordinates are not checked.
class CImage : public CObject {
 public:
  static constexpr int kColorPlanes = 3;
  /// Three colour planes and, in working copies, one derived luminance plane.
  static constexpr int kMaxPlanes = 4;

  CImage();
  /// New image; allocate nonzero allocates a zeroed store now. Bad sizes or formats give an
  /// empty image (IsEmpty()).
  CImage(int bits, int width, int height, int planes, double bscale = 1.0, double bzero = 0.0, int allocate = 1,
         HWND window = nullptr, const wchar_t* text = nullptr);
  /// Deep copy; when memory runs out the result is empty (IsEmpty()).
  CImage(const CImage& other, HWND window = nullptr, const wchar_t* text = nullptr);
  CImage& operator=(const CImage&) = delete;
  ~CImage() override;

  int CopyImage(const CImage& other, HWND window = nullptr, const wchar_t* text = nullptr);
  /// Gives this image the size, format, planes and levels of other with a zeroed store.
  int Create(const CImage& other, HWND window = nullptr, const wchar_t* text = nullptr);
  /// Releases the pixels; the image then has no size.
  void Empty();
  void Swap(CImage* other);
  /// True when there is no pixel store.
  bool IsEmpty() const { return !m_store->IsAllocated(); }

  /// Converts every sample to format bits. fitRange nonzero (integer targets only) chooses
  /// bscale and bzero so the present physical range spans the target type; zero stores the
  /// rounded physical values, clamped to the type, with bscale 1 and bzero 0. signedInt
  /// nonzero makes 16- and 32-bit targets signed. Float targets store physical values.
  int ChangeBits(int bits, int fitRange, int signedInt, HWND window = nullptr, const wchar_t* text = nullptr);
  /// 1 -> 3 copies the plane into all three; 3 -> 1 keeps the luminance
  /// 0.299 R + 0.587 G + 0.114 B. Other counts fail.
  int ChangePlanes(int planes, HWND window = nullptr, const wchar_t* text = nullptr);
  /// Resizes the store keeping the top-left overlap; new samples are 0.
  int ChangeSize(int width, int height, HWND window = nullptr, const wchar_t* text = nullptr);
  int AllocImage(HWND window = nullptr, const wchar_t* text = nullptr);
  /// Takes the pixels of a packed 8-bit (palette) or 24-bit bitmap as 8-bit samples: one plane
  /// when the palette is grey, else three planes (red, green, blue). Levels become 0..255.
  int AttachDIB(HGLOBAL dib);

  // Format and geometry.
  int GetBitsPixel() const { return m_bitsPixel; }
  void SetBitsPixel(int bits) { m_bitsPixel = bits; }
  int IsSigned() const { return m_signed; }
  void SetSigned(int flag) { m_signed = flag; }
  int GetDimension() const { return m_dimension; }
  bool IsColor() const { return m_dimension > 2; }
  int GetWidth() const { return m_width; }
  void SetWidth(int w) { m_width = w; }
  int GetHeight() const { return m_height; }
  void SetHeight(int h) { m_height = h; }
  int GetPlanes() const { return m_planes; }
  void SetPlanes(int n) { m_planes = n; m_dimension = n < 2 ? 2 : 3; }
  double GetBscale() const { return m_bscale; }
  void SetBscale(double v) { m_bscale = v; }
  double GetBzero() const { return m_bzero; }
  void SetBzero(double v) { m_bzero = v; }
  int GetBytesPixel() const { return (m_bitsPixel < 0 ? -m_bitsPixel : m_bitsPixel) / 8; }
  std::size_t GetPixelCount() const { return std::size_t(m_planes) * std::size_t(m_height) * std::size_t(m_width); }
  std::size_t GetImageSize() const { return std::size_t(GetBytesPixel()) * GetPixelCount(); }

  // Display levels.
  double GetLevelMin(int plane) const { return m_levelMin[plane]; }
  double GetLevelMax(int plane) const { return m_levelMax[plane]; }
  double GetLevelRange(int plane) const { return m_levelRange[plane]; }
  /// Sets both ends (and the range) of plane; 0 for a plane out of range.
  int SetLevel(int plane, double min, double max);
  void SetLevelMin(int plane, double min);
  void SetLevelMax(int plane, double max);
  int HasOwnLevel() const { return m_ownLevel; }
  void SetOwnLevel(int flag) { m_ownLevel = flag; }

  // Provenance.
  int IsSaveableFormat() const { return m_saveableFormat; }
  void SetSaveableFormat(int flag) { m_saveableFormat = flag; }
  int IsSaveableFile() const { return m_saveableFile; }
  void SetSaveableFile(int flag) { m_saveableFile = flag; }
  const CString& GetOrgFileName() const { return m_orgFileName; }
  void SetOrgFileName(const CString& s) { m_orgFileName = s; }
  const CString& GetOrgFileFormat() const { return m_orgFileFormat; }
  void SetOrgFileFormat(const CString& s) { m_orgFileFormat = s; }
  int GetOrgBitsPixel() const { return m_orgBitsPixel; }
  void SetOrgBitsPixel(int v) { m_orgBitsPixel = v; }
  int GetOrgPlanes() const { return m_orgPlanes; }
  void SetOrgPlanes(int v) { m_orgPlanes = v; }
  int IsOrgBayerImage() const { return m_orgBayer; }
  void SetOrgBayerImage(int f) { m_orgBayer = f; }
  int IsOrgHoneyCombImage() const { return m_orgHoneyComb; }
  void SetOrgHoneyCombImage(int f) { m_orgHoneyComb = f; }
  int IsOrgDevelopmentImage() const { return m_orgDevelopment; }
  void SetOrgDevelopmentImage(int f) { m_orgDevelopment = f; }
  int GetOrgWidth() const { return m_orgWidth; }
  void SetOrgWidth(int v) { m_orgWidth = v; }
  int GetOrgHeight() const { return m_orgHeight; }
  void SetOrgHeight(int v) { m_orgHeight = v; }
  int IsBayerImage() const { return m_bayer; }
  void SetBayerImage(int f) { m_bayer = f; }
  int IsHoneyCombImage() const { return m_honeyComb; }
  void SetHoneyCombImage(int f) { m_honeyComb = f; }
  int GetRawImageBits() const { return m_rawImageBits; }
  void SetRawImageBits(int v) { m_rawImageBits = v; }
  int IsDevelopmentImage() const { return m_development; }
  void SetDevelopmentImage(int f) { m_development = f; }
  CHeader& GetHeader() { return m_header; }
  const CHeader& GetHeader() const { return m_header; }
  /// True when the camera model is empty: the frame came from an astronomical CCD camera.
  bool IsCcd() const { return m_header.GetCameraModel().IsEmpty(); }

  // Display-histogram sampling: every cullX-th column of every cullY-th line. Allocation
  // chooses them so a histogram reads about a million samples of a plane.
  int* GetHistogramCullXPtr() { return m_hasCull ? &m_cullX : nullptr; }
  int* GetHistogramCullYPtr() { return m_hasCull ? &m_cullY : nullptr; }
  bool IsHistogramCullParam() const { return m_hasCull; }
  int GetHistogramCull(int* x, int* y) const;
  void SetHistogramCull(int x, int y);
  void ClearHistogramCull() { m_hasCull = false; }

  // Samples.
  /// Physical value of one sample by the format's rules; 0.0 for an unknown format.
  double GetPixel(int x, int y, int plane) const;
  /// Smallest and largest physical sample of a plane.
  void GetMinMax(int plane, double* min, double* max) const;
  /// One plane's samples packed line after line (width × bytes per pixel each).
  std::vector<unsigned char> GetPlaneImage(int plane) const;
  /// Stores a buffer made by GetPlaneImage or CreatePlaneBuffer; 0 when the size differs.
  int SetPlaneImage(int plane, const std::vector<unsigned char>& buffer);
  std::vector<unsigned char> CreatePlaneBuffer() const;

  // Line access.
  void* GetImageAdr(int x, int y, int plane, int flags = VM_READONLY, LOCKHANDLE* lock = nullptr) const {
    if (lock) *lock = (flags & VM_LOCK) ? m_store->Lock(y, plane) : nullptr;
    else if (flags & VM_LOCK) m_store->Lock(y, plane);
    return m_store->Address(x, y, plane);
  }
  void* GetNextAdr(void* adr) const { return static_cast<unsigned char*>(adr) + GetBytesPixel(); }
  void* GetPrevAdr(void* adr) const { return static_cast<unsigned char*>(adr) - GetBytesPixel(); }
  int Unlock(LOCKHANDLE lock) const { return m_store->Unlock(lock); }
  void UnlockAll() const { m_store->UnlockAll(); }
  int GetLockCount() const { return m_store->GetLockCount(); }
  CVmImage& GetVmImage() const { return *m_store; }

 protected:
  /// Checks a format and geometry before any allocation.
  static bool IsValidLayout(int bits, int width, int height, int planes);
  /// Fills the store from other, converting formats; both must have the same geometry.
  void CopyPixels(const CImage& other, HWND window, const wchar_t* text);
  void CopyFields(const CImage& other);
  void ResetLevels();

 private:
  void ChooseHistogramCull();

  int m_bitsPixel = -32;
  int m_signed = 1;
  int m_dimension = 2;
  int m_width = 0;
  int m_height = 0;
  int m_planes = 1;
  double m_bscale = 1.0;
  double m_bzero = 0.0;
  std::unique_ptr<CVmImage> m_store;
  double m_levelMin[kMaxPlanes] = {};
  double m_levelMax[kMaxPlanes] = {};
  double m_levelRange[kMaxPlanes] = {};
  int m_ownLevel = 0;
  int m_saveableFormat = 1;
  int m_saveableFile = 1;
  CString m_orgFileName;
  CString m_orgFileFormat;
  int m_orgBitsPixel = 0;
  int m_orgPlanes = 0;
  int m_orgBayer = 0;
  int m_orgHoneyComb = 0;
  int m_orgDevelopment = 0;
  int m_orgWidth = 0;
  int m_orgHeight = 0;
  int m_bayer = 0;
  int m_honeyComb = 0;
  int m_rawImageBits = 0;
  int m_development = 0;
  CHeader m_header;
  bool m_hasCull = false;
  int m_cullX = 1;
  int m_cullY = 1;
};
