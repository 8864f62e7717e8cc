// Fixed-size value types and constants of the host message and memory model.
#pragma once
#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using BOOL = int;
using LONG = std::int32_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using COLORREF = DWORD;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// Window messages and keys used by the progress protocol.
constexpr UINT WM_PAINT = 15;
constexpr UINT WM_KEYDOWN = 0x100;
constexpr UINT WM_CHAR = 0x102;
constexpr UINT WM_USER = 0x400;
constexpr WPARAM VK_ESCAPE = 27;
constexpr UINT PM_NOREMOVE = 0;
constexpr UINT PM_REMOVE = 1;

// Movable-memory allocation flags.
constexpr UINT GMEM_FIXED = 0x0000;
constexpr UINT GMEM_MOVEABLE = 0x0002;
constexpr UINT GMEM_ZEROINIT = 0x0040;
constexpr UINT GHND = GMEM_MOVEABLE | GMEM_ZEROINIT;

constexpr COLORREF RGB(BYTE r, BYTE g, BYTE b) { return COLORREF(r) | (COLORREF(g) << 8) | (COLORREF(b) << 16); }
constexpr BYTE GetRValue(COLORREF c) { return BYTE(c & 0xff); }
constexpr BYTE GetGValue(COLORREF c) { return BYTE((c >> 8) & 0xff); }
constexpr BYTE GetBValue(COLORREF c) { return BYTE((c >> 16) & 0xff); }
