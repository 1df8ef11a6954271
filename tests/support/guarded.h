// Memory of which the first byte behind it ends the program when it is read or written: the address
// sanitizer sees to that, and without it a page that nobody may touch.
#ifndef VYN_TESTS_SUPPORT_GUARDED_H
#define VYN_TESTS_SUPPORT_GUARDED_H

#include <sys/mman.h>

#include <cstddef>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#ifdef __has_feature
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__
#endif
#endif

namespace vyn_test {

#ifdef __SANITIZE_ADDRESS__
class Guarded {
public:
    explicit Guarded(std::size_t size) : bytes_(new char[size]) {}
    [[nodiscard]] char* get() const { return bytes_.get(); }

private:
    std::unique_ptr<char[]> bytes_;
};
#else
class Guarded {
public:
    explicit Guarded(std::size_t size)
        : start_((size + kPage - 1) / kPage * kPage), pages_(take(start_)) {
        start_ -= size;
    }
    ~Guarded() {
        if (pages_ != nullptr) {
            kept()[pages_.get_deleter().length].push_back(std::move(pages_));
        }
    }
    Guarded(Guarded&& other) = default;
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    Guarded& operator=(Guarded&&) = delete;

    [[nodiscard]] char* get() const { return pages_.get() + start_; }

private:
    static constexpr std::size_t kPage = 4096;
    struct Unmap {
        std::size_t length;
        void operator()(char* pages) const { (void)munmap(pages, length + kPage); }
    };
    using Pages = std::unique_ptr<char, Unmap>;

    // By length, for this thread's next ones: fresh pages take longer than what is tried with them.
    static std::map<std::size_t, std::vector<Pages>>& kept() {
        thread_local std::map<std::size_t, std::vector<Pages>> kept;
        return kept;
    }
    static Pages take(std::size_t length) {
        std::vector<Pages>& free = kept()[length];
        if (free.empty()) {
            void* pages = mmap(nullptr, length + kPage, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            free.push_back(Pages(static_cast<char*>(pages), Unmap{length}));
            (void)mprotect(free.back().get() + length, kPage, PROT_NONE);
        }
        Pages pages = std::move(free.back());
        free.pop_back();
        return pages;
    }

    std::size_t start_;
    Pages pages_;
};
#endif

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_GUARDED_H
