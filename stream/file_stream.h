#pragma once
// A stream over a file on disk through the runtime library's buffered I/O.
#include <cstdint>
#include <memory>
#include <utility>

#include "memory/file_mapping.h"
#include "platform/file.h"
#include "stream/stream.h"
#include "stream/write_window.h"

namespace qm {

enum FileMode : int { kFileRead = 0, kFileWrite = 1, kFileReadWrite = 2 };

class FileStream : public Stream {
 public:
  // Mode 0 reads (no write), 1 writes a file it creates or empties (no read). Mode 2 offers
  // both but opens the file for reading alone, as it always did (the runtime library took its
  // mode text "rwb" for "rb"): its writes fail. Nothing asks for it. Any other mode, a null path
  // or a failed open gives null. A stream that only writes gathers its writes in a window of its own instead of the
  // runtime library's buffer, which every seek would flush; failures of gathered writes show at
  // the next flush or close.
  static std::unique_ptr<FileStream> open(const char* path, int mode);

  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;
  ~FileStream() override;

  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t write(const void* buffer, std::size_t count) override;
  std::int64_t tell() override;
  // A seek from the start to the tracked position returns at once without touching the file.
  std::int64_t seek(std::int64_t offset, int origin) override;
  // Closes the file: -1 when that or a gathered write failed (the final flush did not make it
  // to disk). The file is given up either way.
  int close() override;
  // Straight from the file: neither the stream's position nor its buffered bytes are involved.
  // Reads until `count` bytes or the end of the file.
  std::int64_t readAt(std::uint64_t offset, void* buffer, std::size_t count) override;

  bool isOpen() const { return file_.isOpen(); }
  // The system's reason (as lastSystemError() gives it) for the first write or close that
  // failed; 0 if none.
  int lastError() const { return error_; }
  // Hands gathered writes to the system, where later reads of the file see them. False on
  // failure (now or by an earlier write), with the reason in lastError().
  bool handOverWrites() { return !window_ || flushWindow(); }
  // Drops gathered writes not yet handed over: the file is about to be removed.
  void discardWrites() {
    if (window_) window_->discard();
  }
  // Hands buffered bytes to the system and asks it to put them on the disk with `flush`
  // (flushToDisk, or a stand-in for tests). False on failure, with the reason in lastError().
  bool syncToDisk(DiskFlush flush);
  // The whole file mapped into memory for reading; null when the stream cannot read, the file
  // is larger than `largest` bytes or cannot be mapped.
  std::unique_ptr<FileMapping> mapWhole(std::uint64_t largest) const {
    return readable_ ? FileMapping::map(file_, largest) : nullptr;
  }

 private:
  FileStream(File file, bool readable, bool writable)
      : file_(std::move(file)), readable_(readable), writable_(writable) {}
  void noteError();
  // Hands what the window holds to the system; false (the error noted) when it or an earlier
  // hand-over failed.
  bool flushWindow();
  std::int64_t seekInWindow(std::int64_t offset, SeekFrom from);

  File file_;
  bool readable_;
  bool writable_;
  std::unique_ptr<WriteWindow> window_;  // a stream that only writes; it writes to file_
  std::int64_t size_ = 0;                // with a window: the file's size, which starts empty
  bool window_failed_ = false;
  // Advanced by every transfer and refreshed after every seek, so that re-seeking to where the
  // stream already is costs nothing.
  std::int64_t position_ = 0;
  int error_ = 0;
};

}  // namespace qm
