#include "container/Header.h"

#include <gtest/gtest.h>

TEST(CHeader, ExposureTemperatureAndDetectorComeFromKeywordsUnlessSet) {
  CHeader h;
  double v = -1;
  CString s;
  EXPECT_EQ(h.GetExposureTime(&v), 0);
  EXPECT_EQ(v, -1);  // untouched when unknown
  EXPECT_EQ(h.GetDetector(s), 0);
  h.SetKeyword(L"EXPTIME", L"120.5", L"seconds");
  h.SetKeyword(L"CCD-TEMP", L"-15");
  ASSERT_EQ(h.GetExposureTime(&v), 1);
  EXPECT_DOUBLE_EQ(v, 120.5);
  ASSERT_EQ(h.GetCoolingTemperature(&v), 1);
  EXPECT_DOUBLE_EQ(v, -15.0);
  h.SetCameraModel(L"Model X");
  ASSERT_EQ(h.GetDetector(s), 1);
  EXPECT_EQ(s, CString(L"Model X"));
  h.SetKeyword(L"INSTRUME", L"ISAAC");
  h.GetDetector(s);
  EXPECT_EQ(s, CString(L"ISAAC"));
  // A set exposure wins over the keyword; the shutter speed shows it as a fraction below 1 s.
  for (const auto& [seconds, text] : {std::pair{0.004, L"1/250"}, {30.0, L"30"}, {2.5, L"2.5"}}) {
    h.SetExposureTime(seconds);
    h.GetExposureShutterSpeed(s);
    EXPECT_EQ(s, CString(text)) << seconds;
    h.GetExposureTime(&v);
    EXPECT_DOUBLE_EQ(v, seconds);
  }
}

TEST(CHeader, KeywordsKeepOrderAndReplaceByNameIgnoringCase) {
  CHeader h;
  h.SetKeyword(L"OBJECT", L"M51");
  h.SetKeyword(L"DATE-OBS", L"2026-11-01T21:00:00");
  h.SetKeyword(L"object", L"M101", L"target");
  ASSERT_EQ(h.GetKeywords().size(), 2u);
  EXPECT_EQ(h.GetKeywords()[0].value, CString(L"M101"));
  EXPECT_EQ(h.GetKeywords()[0].comment, CString(L"target"));
  double d;
  EXPECT_FALSE(h.GetKeyword(L"OBJECT", &d));  // not a number
  h.RemoveKeyword(L"OBJECT");
  CString s;
  EXPECT_FALSE(h.GetKeyword(L"OBJECT", s));
}
