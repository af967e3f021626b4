// Finds the product's files by a relative name in a short list of directories: the operator's
// private directory, the product's directories and the parent directory. A file that is missing may
// be reached through a Windows shell shortcut to it, "NAME.lnk" or "Shortcut to NAME.lnk".
#pragma once

#include <windows.h>

#include <memory>

#include "base/not_copied.h"
#include "shared/include/text_block.h"

// The platform's headers may define the name of a function of theirs, which the class hides.
#undef SearchPath

constexpr int PATH_BUFFER_SIZE = 1024;

enum SearchMode { SEARCH_ALL = 0, SEARCH_PRIVATE = 1, SEARCH_PRODUCT = 2 };

/// What a directory listing gives: the directory's path, and the name of an entry in it.
struct ListingBuffer {
  char directory[PATH_BUFFER_SIZE];
  char entry[PATH_BUFFER_SIZE];
};

/// A directory being listed; owned by the caller from open_listing to close_listing.
struct DirectoryListing : NotCopied {
  DirectoryListing() = default;
  ~DirectoryListing();

  HANDLE find_handle = INVALID_HANDLE_VALUE;
  char directory[PATH_BUFFER_SIZE] = "";
  SearchMode mode = SEARCH_ALL;
};

class SearchPath : NotCopied {
 public:
  /// Fixes the private directory: the one given (or null), or the one that the environment names.
  /// Without memory for it the process ends with an assertion report.
  explicit SearchPath(const char* directory = nullptr);
  ~SearchPath();

  /// In small letters, with slashes, ending in one.
  [[nodiscard]] const char* private_directory() const { return private_directory_.get(); }

  /// Finds a file or directory. Returns the buffer with its path; null, reported and not flushed,
  /// when there is none. A path that does not fit the buffer counts as not found.
  char* resolve(const char* name, char (&path)[PATH_BUFFER_SIZE], SearchMode mode) const;

  /// Finds a directory and gives its first entry. Null, reported and not flushed, on failure.
  std::unique_ptr<DirectoryListing> open_listing(const char* name, SearchMode mode,
                                                 ListingBuffer& buffer) const;

 private:
  TextBlock private_directory_;
};

/// Gives the next entry. 0, or -1 at the end.
[[nodiscard]] int next_listing_entry(DirectoryListing& listing, ListingBuffer& buffer);

/// Ends a listing and releases it. 0, or -1 when the platform refuses: the listing then stays.
int close_listing(std::unique_ptr<DirectoryListing>& listing);

/// The user's name as it was when the first SearchPath was constructed; empty when unknown.
[[nodiscard]] const char* search_path_user();

/// Whether a SearchPath stands.
[[nodiscard]] bool search_path_stands();

/// Sets the product and installation directories from the environment and the current directory;
/// one that cannot be told is none. Before the program's static state stands nothing is done.
/// Always returns 0.
extern "C" int dll_init_searchpath();

/// The process-wide search path (shared_state.h); null until it is made.
extern SearchPath* search_path;
