// Per-class pools for the value tree's objects. A tree is built from many small objects that are
// created and released all the time (every message, every settings section), so their memory is
// recycled instead of going back to the heap.
//
// Each thread keeps its own bounded free list per class: taking and returning memory is a pointer
// swap without atomics or locks. An object may be released on another thread than the one that
// created it; its memory then simply joins the releasing thread's list (all of it comes from the
// same global heap). A full list hands memory back to the heap, and a list is emptied when its
// thread ends.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define QZ_POOL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZ_POOL_ASAN 1
#endif
#endif
#if defined(QZ_POOL_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace QZSTD_POOL2 {

// Free objects kept per class and per thread; more are returned to the heap.
inline constexpr uint32_t POOL_MAX_FREE_PER_THREAD = 512;

// Raw memory blocks of one size, recycled per thread. T names the class whose blocks these are.
template <class T>
class ValuesPool
{
public:
    static void* Allocate(size_t nBytes)
    {
        FreeList& list = t_list;
        if (Block* p = list.pHead) {
            Unpoison(p, nBytes);
            list.pHead = p->pNext;
            --list.nCount;
            return p;
        }
        return ::operator new(nBytes);
    }

    static void Free(void* pv, size_t nBytes) noexcept
    {
        FreeList& list = t_list;
        if (!list.bDrainRegistered)
            RegisterDrain(list);
        if (list.bClosed || list.nCount >= POOL_MAX_FREE_PER_THREAD) {
            ::operator delete(pv);
            return;
        }
        Block* p = static_cast<Block*>(pv);
        p->pNext = list.pHead;
        list.pHead = p;
        ++list.nCount;
        Poison(p, nBytes);
    }

    // Free blocks held for the calling thread.
    static uint32_t GetFreeCount() { return t_list.nCount; }

private:
    struct Block
    {
        Block* pNext;
    };
    // Trivially destructible on purpose: it stays usable while other thread-local objects are
    // destroyed, so a release during thread exit still works (it then goes to the heap).
    struct FreeList
    {
        Block* pHead;
        uint32_t nCount;
        bool bDrainRegistered;
        bool bClosed;
    };
    struct Drain
    {
        ~Drain()
        {
            FreeList& list = t_list;
            list.bClosed = true;
            while (Block* p = list.pHead) {
                Unpoison(p, sizeof(Block));
                list.pHead = p->pNext;
                ::operator delete(p);
            }
            list.nCount = 0;
        }
    };

    static void RegisterDrain(FreeList& list) noexcept
    {
        list.bDrainRegistered = true;
        // Touching the thread-local object registers its destructor for this thread's exit.
        static thread_local Drain t_drain;
        (void)t_drain;
    }

    // Under AddressSanitizer a pooled block is poisoned whole (the pool unpoisons the link to follow
    // it), so a use after the last Release is still reported although the memory was not freed.
    static void Poison([[maybe_unused]] Block* p, [[maybe_unused]] size_t nBytes)
    {
#if defined(QZ_POOL_ASAN)
        ASAN_POISON_MEMORY_REGION(p, nBytes);
#endif
    }
    static void Unpoison([[maybe_unused]] Block* p, [[maybe_unused]] size_t nBytes)
    {
#if defined(QZ_POOL_ASAN)
        ASAN_UNPOISON_MEMORY_REGION(p, nBytes);
#endif
    }

    static thread_local FreeList t_list;
};

template <class T>
thread_local typename ValuesPool<T>::FreeList ValuesPool<T>::t_list{};

// Reference counting for a pooled implementation class: the last Release destroys the object and
// hands its memory to Pool, and Create takes memory from Pool first. An object always starts from
// its constructor, so a recycled object never shows the state of its previous life.
template <class Impl, class Pool>
class PooledQZBaseImpl final : public Impl
{
public:
    // A new object with reference count 1.
    template <class... A>
    static PooledQZBaseImpl* Create(A&&... args)
    {
        void* pv = Pool::Allocate(sizeof(PooledQZBaseImpl));
        try {
            return new (pv) PooledQZBaseImpl(std::forward<A>(args)...);
        } catch (...) {
            Pool::Free(pv, sizeof(PooledQZBaseImpl));
            throw;
        }
    }

    long AddRef() override { return m_nRef.fetch_add(1, std::memory_order_relaxed) + 1; }

    long Release() override
    {
        // With one owner nobody else can add a reference, so the atomic decrement can be skipped.
        if (m_nRef.load(std::memory_order_acquire) != 1) {
            const long n = m_nRef.fetch_sub(1, std::memory_order_acq_rel) - 1;
            if (n != 0)
                return n;
        }
        this->~PooledQZBaseImpl();
        Pool::Free(this, sizeof(PooledQZBaseImpl));
        return 0;
    }

private:
    // User-provided on purpose: Impl is default-initialised, not value-initialised, so a new object
    // is not first cleared byte by byte (which costs more than the rest of its construction).
    PooledQZBaseImpl() {}
    template <class A0, class... A>
    explicit PooledQZBaseImpl(A0&& a0, A&&... args) : Impl(std::forward<A0>(a0), std::forward<A>(args)...)
    {
    }
    ~PooledQZBaseImpl() override = default;

    std::atomic<long> m_nRef{1};
};

// A new pooled object of class Impl, reference count 1. The result is of the final class, so calls
// made through it need no virtual dispatch.
template <class Impl, class... A>
PooledQZBaseImpl<Impl, ValuesPool<Impl>>* CreatePooled(A&&... args)
{
    return PooledQZBaseImpl<Impl, ValuesPool<Impl>>::Create(std::forward<A>(args)...);
}

// Free blocks of class Impl held for the calling thread.
template <class Impl>
uint32_t GetPooledFreeCount()
{
    return ValuesPool<Impl>::GetFreeCount();
}

}  // namespace QZSTD_POOL2
