#include "search/FilePool.h"

#include <boost/system/error_code.hpp>

namespace qvsvr::kelvo {

using qv::kelvo::IoResult;
using qv::kelvo::MediaFile;
using qv::kelvo::OpenMode;

class FilePool::PooledFile : public MediaFile {
 public:
  PooledFile(FilePool& filePool, std::string name) : pool(filePool), path(std::move(name)) {}
  ~PooledFile() override { (void)Close(); }
  PooledFile(const PooledFile&) = delete;
  PooledFile& operator=(const PooledFile&) = delete;

  IoResult ReadAt(std::uint64_t offset, qv::kelvo::MutableBytes buffer) override {
    const int error = Use();
    return error == 0 ? real->ReadAt(offset, buffer) : IoResult{0, error};
  }
  IoResult WriteAt(std::uint64_t offset, std::span<const qv::kelvo::ConstBytes> parts) override {
    const int error = Use();
    return error == 0 ? real->WriteAt(offset, parts) : IoResult{0, error};
  }
  int Size(std::uint64_t& bytes) override {
    const int error = Use();
    return error == 0 ? real->Size(bytes) : error;
  }
  qv::kelvo::FileStamp OpenedAs() const override { return opened; }
  int CreationTime(std::int64_t& seconds) override {
    const int error = Use();
    return error == 0 ? real->CreationTime(seconds) : error;
  }
  int SetSize(std::uint64_t bytes) override {
    const int error = Use();
    return error == 0 ? real->SetSize(bytes) : error;
  }
  int Close() override {
    if (real == nullptr) return 0;
    pool.open.erase(place);
    const int error = real->Close();
    real.reset();
    return error;
  }

  // Makes sure that the file is open, and the last one to be closed.
  int Use() {
    if (real == nullptr) return pool.OpenReal(*this);
    pool.open.splice(pool.open.end(), pool.open, place);
    return 0;
  }

 private:
  friend class FilePool;

  FilePool& pool;
  const std::string path;
  qv::kelvo::FileStamp opened;             // for the first time
  std::unique_ptr<MediaFile> real;         // null while it has no descriptor
  std::list<PooledFile*>::iterator place;  // in the pool, while it has one
};

int FilePool::Open(const std::string& path, OpenMode mode, std::unique_ptr<MediaFile>& file) {
  file.reset();
  if (mode != OpenMode::Read) return files.Open(path, mode, file);
  auto pooled = std::make_unique<PooledFile>(*this, path);
  if (const int error = OpenReal(*pooled); error != 0) return error;
  pooled->opened = pooled->real->OpenedAs();
  file = std::move(pooled);
  return 0;
}

int FilePool::OpenReal(PooledFile& file) {
  if (open.size() >= kMaxOpen) CloseOldest();
  int error = files.Open(file.path, OpenMode::Read, file.real);
  const auto isExhausted = [&error] {
    const boost::system::error_code code(error, boost::system::system_category());
    return code == boost::system::errc::too_many_files_open;
  };
  // The process may be short of descriptors long before the pool is.
  while (isExhausted() && !open.empty()) {
    CloseOldest();
    error = files.Open(file.path, OpenMode::Read, file.real);
  }
  if (error == 0) file.place = open.insert(open.end(), &file);
  return error;
}

void FilePool::CloseOldest() {
  (void)open.front()->Close();
}

}  // namespace qvsvr::kelvo
