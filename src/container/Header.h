// Metadata record of an image: camera facts and file keywords.
#pragma once
#include <cstdint>
#include <vector>

#include "platform/Object.h"
#include "platform/String.h"

/// @brief Metadata of an image. Besides the camera fields it keeps the file's keywords
/// (name, value text, comment) in their order, so a reader can store FITS cards and a
/// writer can put them back. Keyword names are compared without regard to case.
class CHeader : public CObject {
 public:
  struct Keyword {
    CString name;
    CString value;
    CString comment;
  };

  CHeader() = default;

  const CString& GetLightSource() const { return m_lightSource; }
  void SetLightSource(const CString& s) { m_lightSource = s; }
  std::uint16_t GetISO() const { return m_iso; }
  void SetISO(std::uint16_t iso) { m_iso = iso; }
  const CString& GetCameraMaker() const { return m_cameraMaker; }
  void SetCameraMaker(const CString& s) { m_cameraMaker = s; }
  const CString& GetCameraModel() const { return m_cameraModel; }
  void SetCameraModel(const CString& s) { m_cameraModel = s; }

  double GetWBShootingGainBayer(int index) const { return m_gainBayer[index]; }
  void GetWBShootingGainBayer(double gains[4]) const;
  void SetWBShootingGainBayer(int index, double gain) { m_gainBayer[index] = gain; }
  double GetWBShootingGainHoneyComb(int index) const { return m_gainHoneyComb[index]; }
  void GetWBShootingGainHoneyComb(double gains[8]) const;
  void SetWBShootingGainHoneyComb(int index, double gain) { m_gainHoneyComb[index] = gain; }
  int IsWBShootingGain() const { return m_hasShootingGain; }
  void SetWBShootingGain(int flag) { m_hasShootingGain = flag; }
  int GetCFAPattern() const { return m_cfaPattern; }
  void SetCFAPattern(int pattern) { m_cfaPattern = pattern; }

  /// Exposure in seconds: the value set with SetExposureTime, else the EXPTIME or EXPOSURE
  /// keyword. Nonzero when known.
  int GetExposureTime(double* seconds) const;
  void SetExposureTime(double seconds);
  /// Sensor temperature in degrees Celsius: the set value, else CCD-TEMP or SET-TEMP.
  int GetCoolingTemperature(double* celsius) const;
  void SetCoolingTemperature(double celsius);
  /// Detector name: INSTRUME or DETECTOR keyword, else the camera model. Nonzero when known.
  int GetDetector(CString& name) const;
  /// Shutter speed as text: "1/250" below one second, else seconds ("30", "2.5"); empty when unknown.
  void GetExposureShutterSpeed(CString& text) const;

  const std::vector<Keyword>& GetKeywords() const { return m_keywords; }
  /// Adds a keyword or replaces the value and comment of an existing one.
  void SetKeyword(const CString& name, const CString& value, const CString& comment = CString());
  /// Value of a keyword; false when absent.
  bool GetKeyword(const wchar_t* name, CString& value) const;
  bool GetKeyword(const wchar_t* name, double* value) const;
  void RemoveKeyword(const wchar_t* name);
  void ClearKeywords() { m_keywords.clear(); }

 private:
  const Keyword* Find(const wchar_t* name) const;

  CString m_lightSource;
  std::uint16_t m_iso = 0;
  CString m_cameraMaker;
  CString m_cameraModel;
  double m_gainBayer[4] = {1.0, 1.0, 1.0, 1.0};
  double m_gainHoneyComb[8] = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
  int m_hasShootingGain = 0;
  int m_cfaPattern = 0;
  bool m_hasExposure = false;
  double m_exposure = 0.0;
  bool m_hasTemperature = false;
  double m_temperature = 0.0;
  std::vector<Keyword> m_keywords;
};
