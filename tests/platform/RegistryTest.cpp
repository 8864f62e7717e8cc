#include "platform/registry/Registry.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

class RegistryTest : public ::testing::Test {
 protected:
  void TearDown() override { CRegistry::Clear(); }
};

TEST_F(RegistryTest, ReadFallsBackToTheDefaultAndIntsBelowTheMinimum) {
  double d = 0;
  EXPECT_EQ(CRegistry::Read(L"PSF", L"Radius", 4.5, &d), 0);
  EXPECT_DOUBLE_EQ(d, 4.5);
  CRegistry::Write(L"PSF", L"Radius", 7.25);
  EXPECT_EQ(CRegistry::Read(L"psf", L"RADIUS", 4.5, &d), 1);  // names ignore case
  EXPECT_DOUBLE_EQ(d, 7.25);
  int v = 0;
  CRegistry::Write(L"Focus", L"Box", -3);
  CRegistry::Read(L"Focus", L"Box", 16, &v, 1);
  EXPECT_EQ(v, 16);
  CRegistry::Write(L"Focus", L"Box", 32);
  CRegistry::Read(L"Focus", L"Box", 16, &v, 1);
  EXPECT_EQ(v, 32);
}

TEST_F(RegistryTest, LoadsSectionsFromAFile) {
  const char* path = "registry_test.ini";
  {
    std::ofstream out(path);
    out << "; comment\n[PSF]\nRadius = 3.5\nbad line\nName=abc\n[Focus]\nBox=12\n";
  }
  EXPECT_EQ(CRegistry::LoadFile(path), 2);  // the non-numeric value is skipped
  double r = 0, b = 0;
  CRegistry::Read(L"PSF", L"Radius", 0.0, &r);
  CRegistry::Read(L"Focus", L"Box", 0.0, &b);
  EXPECT_DOUBLE_EQ(r, 3.5);
  EXPECT_DOUBLE_EQ(b, 12.0);
  std::remove(path);
  EXPECT_EQ(CRegistry::LoadFile("no/such/file.ini"), -1);
}
