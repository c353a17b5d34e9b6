// Memory that ends right before a page that cannot be touched.
#pragma once

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <cstddef>

namespace korvane::test {

class GuardedMemory {
 public:
  explicit GuardedMemory(size_t size) {
    const size_t page = PageSize();
    mapped_ = (size / page + 2) * page;
#ifdef _WIN32
    base_ = static_cast<char*>(
        VirtualAlloc(nullptr, mapped_, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    DWORD old = 0;
    guarded_ = base_ && VirtualProtect(base_ + mapped_ - page, page, PAGE_NOACCESS, &old);
#else
    void* const mapped =
        mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped != MAP_FAILED) base_ = static_cast<char*>(mapped);
    guarded_ = base_ && mprotect(base_ + mapped_ - page, page, PROT_NONE) == 0;
#endif
    data_ = base_ + mapped_ - page - size;
  }
  GuardedMemory(const GuardedMemory&) = delete;
  ~GuardedMemory() {
#ifdef _WIN32
    VirtualFree(base_, 0, MEM_RELEASE);
#else
    munmap(base_, mapped_);
#endif
  }

  bool IsGuarded() const { return guarded_; }
  char* data() { return data_; }
  const char* data() const { return data_; }

 private:
  static size_t PageSize() {
#ifdef _WIN32
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
#else
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
#endif
  }

  size_t mapped_ = 0;
  char* base_ = nullptr;
  char* data_ = nullptr;
  bool guarded_ = false;
};

}  // namespace korvane::test
