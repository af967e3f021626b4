// Identifiers of the RPC runtime.
#pragma once

#include <windows.h>

// NOLINTBEGIN(modernize-use-using,cppcoreguidelines-macro-usage): the platform's own spelling
extern "C" {

#define RPC_S_OK 0
#define RPC_S_UUID_NO_ADDRESS 1739
#define RPC_S_UUID_LOCAL_ONLY 1824

typedef LONG RPC_STATUS;
typedef unsigned char* RPC_CSTR;

typedef struct _UUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];
} UUID;

RPC_STATUS WINAPI UuidCreate(UUID* uuid);
RPC_STATUS WINAPI UuidToStringA(const UUID* uuid, RPC_CSTR* text);
RPC_STATUS WINAPI RpcStringFreeA(RPC_CSTR* text);

}  // extern "C"
// NOLINTEND(modernize-use-using,cppcoreguidelines-macro-usage)
