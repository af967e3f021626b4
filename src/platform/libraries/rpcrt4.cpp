// Stands in for the RPC runtime: random identifiers.

#include <rpc.h>

#include <cstdio>
#include <cstdlib>
#include <random>

#include "platform/host/calls.h"

RPC_STATUS WINAPI UuidCreate(UUID* uuid) {
  if (const auto code = scripted_failure("UuidCreate")) return static_cast<RPC_STATUS>(*code);
  static std::random_device random;
  *uuid = {random(), static_cast<WORD>(random()), static_cast<WORD>(random()), {}};
  for (BYTE& byte : uuid->Data4) byte = static_cast<BYTE>(random());
  // Version 4 (random) of the common variant.
  uuid->Data3 = static_cast<WORD>((uuid->Data3 & 0x0FFF) | 0x4000);
  uuid->Data4[0] = static_cast<BYTE>((uuid->Data4[0] & 0x3F) | 0x80);
  return RPC_S_OK;
}

RPC_STATUS WINAPI UuidToStringA(const UUID* uuid, RPC_CSTR* text) {
  if (const auto code = scripted_failure("UuidToStringA")) return static_cast<RPC_STATUS>(*code);
  constexpr std::size_t SIZE = 37;
  auto* const block = static_cast<char*>(std::malloc(SIZE));
  if (block == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
  const auto& last = uuid->Data4;
  std::snprintf(block, SIZE, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", uuid->Data1,
                uuid->Data2, uuid->Data3, last[0], last[1], last[2], last[3], last[4], last[5],
                last[6], last[7]);
  *text = reinterpret_cast<RPC_CSTR>(block);
  return RPC_S_OK;
}

RPC_STATUS WINAPI RpcStringFreeA(RPC_CSTR* text) {
  const auto code = scripted_failure("RpcStringFreeA");
  std::free(*text);
  *text = nullptr;
  return code ? static_cast<RPC_STATUS>(*code) : RPC_S_OK;
}
