// The functions that the layer offers, by name: a host description scripts faults by them.
#pragma once

#include <cstdint>
#include <new>
#include <optional>
#include <string_view>

#include <windows.h>

#include "platform/hosts/errno_keeper.h"

enum class Call : std::uint8_t {
  ADD_IP_ADDRESS,
  CLOSE_HANDLE,
  CREATE_PIPE,
  CREATE_PROCESS,
  DELETE_IP_ADDRESS,
  DHCP_NOTIFY_CONFIG_CHANGE,
  FIND_CLOSE,
  FIND_FIRST_FILE,
  FIND_NEXT_FILE,
  FORMAT_MESSAGE,
  FREE_ADDR_INFO,
  FREE_LIBRARY,
  GET_ADAPTERS_INFO,
  GET_ADDR_INFO,
  GET_CONSOLE_TITLE,
  GET_CURRENT_DIRECTORY,
  GET_FULL_PATH_NAME,
  GET_IF_ENTRY,
  GET_IF_TABLE,
  GET_IP_ADDR_TABLE,
  GET_LAST_ERROR,
  GET_LONG_PATH_NAME,
  GET_NAME_INFO,
  GET_PROC_ADDRESS,
  GET_SYSTEM_DIRECTORY,
  GET_USER_NAME,
  GET_VERSION_EX,
  GLOBAL_MEMORY_STATUS,
  LOAD_LIBRARY,
  MULTI_BYTE_TO_WIDE_CHAR,
  READ_FILE,
  REG_CLOSE_KEY,
  REG_CREATE_KEY_EX,
  REG_OPEN_KEY_EX,
  REG_QUERY_VALUE_EX,
  REG_SET_VALUE_EX,
  RPC_STRING_FREE,
  SET_CONSOLE_TITLE,
  SET_HANDLE_INFORMATION,
  SET_IF_ENTRY,
  SLEEP,
  UUID_CREATE,
  UUID_TO_STRING,
  WSA_STARTUP,
};

/// The platform's name of a call, and the call of a name.
[[nodiscard]] std::string_view call_name(Call call);
[[nodiscard]] std::optional<Call> find_call(std::string_view name);

/// Whether a function is found at run time in a library, which is named in lower case.
[[nodiscard]] bool is_in_library(Call call, std::string_view library);

/// Runs the body of a call that answers a code; memory that runs out becomes its code.
template <typename Body>
[[nodiscard]] DWORD answering_code(Body body) {
  const ErrnoKeeper keeper;
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

/// Runs the body of a call that leaves its code as last error; memory that runs out becomes
/// `failure` with its code.
template <typename Result, typename Body>
[[nodiscard]] Result leaving_code(Result failure, Body body) {
  const ErrnoKeeper keeper;
  try {
    return body();
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return failure;
  }
}

/// Asks the current host's script about a call that is being made. Returns the code with which it
/// is to fail, or nothing; a scripted access violation is raised here.
[[nodiscard]] std::optional<DWORD> scripted_failure(Call call);
