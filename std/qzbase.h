// Reference counting root of every object shared across modules, and the smart pointer that holds it.
#pragma once

#include <atomic>
#include <cstring>
#include <utility>

#include "std/error.h"

namespace QZSTD {

// The last Release destroys the object or hands it back to its pool.
struct QZBase
{
    virtual long AddRef() = 0;
    virtual long Release() = 0;

protected:
    virtual ~QZBase() = default;
};

// Interface lookup by name. Each interface that can be looked up names itself with a static
// `QZ_IID` string such as "QZPAR::Params"; QueryInterface returns an AddRef'ed pointer or false.
struct QZBaseQI : QZBase
{
    virtual bool QueryInterface(const char* szIid, void** ppv) = 0;
};

// Plain (unpooled) reference counting for classes outside the value tree.
template <class T>
class RcClassImpl : public T
{
public:
    template <class... A>
    explicit RcClassImpl(A&&... args) : T(std::forward<A>(args)...)
    {
    }
    long AddRef() override { return ++m_nRef; }
    long Release() override
    {
        const long n = --m_nRef;
        if (n == 0)
            delete this;
        return n;
    }

private:
    std::atomic<long> m_nRef{1};
};

// Owning pointer to a reference-counted object. Taking the address (`&p`) hands out an out-parameter,
// which must be empty: a callee that fills it would otherwise leak the reference held before.
template <class T>
class CAutoPtr
{
public:
    CAutoPtr() = default;
    CAutoPtr(std::nullptr_t) {}
    // Adopts a reference the caller already owns (a factory result, an out-parameter).
    static CAutoPtr Adopt(T* p)
    {
        CAutoPtr r;
        r.m_p = p;
        return r;
    }
    // Shares an existing object: takes a new reference.
    explicit CAutoPtr(T* p) : m_p(p)
    {
        if (m_p)
            m_p->AddRef();
    }
    CAutoPtr(const CAutoPtr& o) : CAutoPtr(o.m_p) {}
    CAutoPtr(CAutoPtr&& o) noexcept : m_p(std::exchange(o.m_p, nullptr)) {}
    template <class U>
    CAutoPtr(const CAutoPtr<U>& o) : CAutoPtr(static_cast<T*>(o.Get()))
    {
    }
    // Takes over the reference of a pointer to a derived interface (no count traffic).
    template <class U>
    CAutoPtr(CAutoPtr<U>&& o) noexcept : m_p(o.Detach())
    {
    }
    CAutoPtr& operator=(CAutoPtr o) noexcept
    {
        std::swap(m_p, o.m_p);
        return *this;
    }
    ~CAutoPtr() { Reset(); }

    void Reset()
    {
        if (T* p = std::exchange(m_p, nullptr))
            p->Release();
    }
    T* Detach() { return std::exchange(m_p, nullptr); }
    // Hands out a new reference for an out-parameter.
    void CopyTo(T** pp) const
    {
        QZ_ASSERT(pp != nullptr);
        *pp = m_p;
        if (m_p)
            m_p->AddRef();
    }

    T** operator&()
    {
        if (m_p)
            QZ_ASSERTION_FAILED("p==NULL");
        return &m_p;
    }
    T* Get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    explicit operator bool() const { return m_p != nullptr; }
    operator T*() const { return m_p; }

private:
    T* m_p = nullptr;
};

// Looks an interface up by its QZ_IID; returns an empty pointer when the object does not offer it.
template <class I>
CAutoPtr<I> QueryInterface(QZBaseQI* pObj)
{
    void* pv = nullptr;
    if (!pObj || !pObj->QueryInterface(I::QZ_IID, &pv))
        return {};
    return CAutoPtr<I>::Adopt(static_cast<I*>(pv));
}

}  // namespace QZSTD
