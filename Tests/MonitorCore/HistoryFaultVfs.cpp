// SPDX-License-Identifier: MIT
#include "Tests/MonitorCore/HistoryFaultVfs.h"

#include <sqlite3.h>

#include <new>

namespace monitor::fakes {

struct FaultVfs::State {
  sqlite3_vfs* real = nullptr;
  sqlite3_vfs shim{};
  FileCall call = FileCall::Open;
  int remaining = 0;  // calls until the one that fails; 0 when disarmed
  bool forGood = false;
  bool failing = false;  // from the n-th call on
  bool failed = false;

  bool fails(FileCall made) {
    if (made != call || (remaining == 0 && !failing)) return false;
    if (remaining > 0 && --remaining > 0) return false;
    failing = forGood;
    failed = true;
    return true;
  }
};

namespace {

// SQLite allots this with room for the real layer's file behind it.
struct ShimFile {
  sqlite3_file base;
  FaultVfs::State* state;
  [[nodiscard]] sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

ShimFile* shim(sqlite3_file* file) {
  return reinterpret_cast<ShimFile*>(file);
}
sqlite3_file* real(sqlite3_file* file) {
  return shim(file)->real();
}
FaultVfs::State& state(sqlite3_vfs* vfs) {
  return *static_cast<FaultVfs::State*>(vfs->pAppData);
}

int closeFile(sqlite3_file* file) {
  return real(file)->pMethods->xClose(real(file));
}
int readFile(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset) {
  return real(file)->pMethods->xRead(real(file), bytes, count, offset);
}
int writeFile(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset) {
  if (!shim(file)->state->fails(FileCall::Write)) {
    return real(file)->pMethods->xWrite(real(file), bytes, count, offset);
  }
  if (count > 1) real(file)->pMethods->xWrite(real(file), bytes, count / 2, offset);
  return SQLITE_IOERR_WRITE;
}
int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
  if (shim(file)->state->fails(FileCall::Truncate)) return SQLITE_IOERR_TRUNCATE;
  return real(file)->pMethods->xTruncate(real(file), size);
}
int syncFile(sqlite3_file* file, int) {
  return shim(file)->state->fails(FileCall::Sync) ? SQLITE_IOERR_FSYNC : SQLITE_OK;
}
int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  return real(file)->pMethods->xFileSize(real(file), size);
}
int lockFile(sqlite3_file* file, int level) {
  return real(file)->pMethods->xLock(real(file), level);
}
int unlockFile(sqlite3_file* file, int level) {
  return real(file)->pMethods->xUnlock(real(file), level);
}
int checkLock(sqlite3_file* file, int* result) {
  return real(file)->pMethods->xCheckReservedLock(real(file), result);
}
int control(sqlite3_file* file, int operation, void* argument) {
  return real(file)->pMethods->xFileControl(real(file), operation, argument);
}
int sectorSize(sqlite3_file* file) {
  return real(file)->pMethods->xSectorSize(real(file));
}
int characteristics(sqlite3_file* file) {
  return real(file)->pMethods->xDeviceCharacteristics(real(file));
}
int mapShared(sqlite3_file* file, int page, int size, int extend, void volatile** memory) {
  return real(file)->pMethods->xShmMap(real(file), page, size, extend, memory);
}
int lockShared(sqlite3_file* file, int offset, int count, int flags) {
  return real(file)->pMethods->xShmLock(real(file), offset, count, flags);
}
void barrier(sqlite3_file* file) {
  real(file)->pMethods->xShmBarrier(real(file));
}
int unmapShared(sqlite3_file* file, int remove) {
  return real(file)->pMethods->xShmUnmap(real(file), remove);
}

// Version 2 leaves out memory mapping, so that every access is a call.
constexpr sqlite3_io_methods kMethods{2,        closeFile,   readFile,        writeFile,  truncateFile,
                                      syncFile, fileSize,    lockFile,        unlockFile, checkLock,
                                      control,  sectorSize,  characteristics, mapShared,  lockShared,
                                      barrier,  unmapShared, nullptr,         nullptr};

int openFile(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  FaultVfs::State& faults = state(vfs);
  auto* opened = new (file) ShimFile{};
  opened->state = &faults;
  if (faults.fails(FileCall::Open)) return SQLITE_CANTOPEN;
  const int status = faults.real->xOpen(faults.real, name, opened->real(), flags, outFlags);
  // Without methods SQLite does not close the file.
  if (opened->real()->pMethods != nullptr) opened->base.pMethods = &kMethods;
  return status;
}

int deleteFile(sqlite3_vfs* vfs, const char* name, int sync) {
  return state(vfs).real->xDelete(state(vfs).real, name, sync);
}
int accessFile(sqlite3_vfs* vfs, const char* name, int flags, int* result) {
  return state(vfs).real->xAccess(state(vfs).real, name, flags, result);
}
int fullName(sqlite3_vfs* vfs, const char* name, int size, char* full) {
  return state(vfs).real->xFullPathname(state(vfs).real, name, size, full);
}

}  // namespace

FaultVfs::FaultVfs() : state_(std::make_unique<State>()) {
  state_->real = sqlite3_vfs_find(nullptr);
  state_->shim = *state_->real;  // randomness, time and the like are the real layer's
  state_->shim.pNext = nullptr;
  state_->shim.zName = "vesk-faults";
  state_->shim.pAppData = state_.get();
  state_->shim.szOsFile = static_cast<int>(sizeof(ShimFile)) + state_->real->szOsFile;
  state_->shim.xOpen = openFile;
  state_->shim.xDelete = deleteFile;
  state_->shim.xAccess = accessFile;
  state_->shim.xFullPathname = fullName;
  sqlite3_vfs_register(&state_->shim, 1);
}

FaultVfs::~FaultVfs() {
  sqlite3_vfs_unregister(&state_->shim);
  sqlite3_vfs_register(state_->real, 1);
}

void FaultVfs::failNth(FileCall call, int n, bool forGood) {
  state_->call = call;
  state_->remaining = n;
  state_->forGood = forGood;
  state_->failing = false;
  state_->failed = false;
}

void FaultVfs::disarm() {
  state_->remaining = 0;
  state_->failing = false;
}

bool FaultVfs::failed() const {
  return state_->failed;
}

}  // namespace monitor::fakes
