#include "std/qzbase.h"

#include <gtest/gtest.h>

#include "tests/testutil/errorof.h"

namespace {

struct Counted : QZSTD::QZBaseQI
{
    static constexpr const char* QZ_IID = "TEST::Counted";
    explicit Counted(int* pnDestroyed) : m_pnDestroyed(pnDestroyed) {}
    ~Counted() override { ++*m_pnDestroyed; }
    bool QueryInterface(const char* szIid, void** ppv) override
    {
        if (std::strcmp(szIid, QZ_IID) != 0)
            return false;
        AddRef();
        *ppv = static_cast<Counted*>(this);
        return true;
    }
    int* m_pnDestroyed;
};

struct Other
{
    static constexpr const char* QZ_IID = "TEST::Other";
};

using CountedPtr = QZSTD::CAutoPtr<Counted>;

TEST(CAutoPtr, LastReleaseDestroysAndAnOutParameterMustBeEmpty)
{
    int nDestroyed = 0;
    CountedPtr p = CountedPtr::Adopt(new QZSTD::RcClassImpl<Counted>(&nDestroyed));
    {
        CountedPtr q = p;
        CountedPtr r(std::move(q));
        EXPECT_FALSE(q);
        const std::optional<QZSTD::QZError> error = QZTEST::ErrorOf([&] { (void)&r; });
        ASSERT_TRUE(error && error->Is("QZSTD", 1198)) << "taking the address of a non-empty pointer";
        EXPECT_EQ(error->GetArgs().at(0), L"p==NULL");
        CountedPtr empty;
        p.CopyTo(&empty);
        EXPECT_EQ(empty.Get(), p.Get());
    }
    EXPECT_EQ(nDestroyed, 0);
    p.Reset();
    EXPECT_EQ(nDestroyed, 1);
}

TEST(QueryInterface, FindsOnlyTheNamedInterface)
{
    int nDestroyed = 0;
    CountedPtr p = CountedPtr::Adopt(new QZSTD::RcClassImpl<Counted>(&nDestroyed));
    EXPECT_EQ(QZSTD::QueryInterface<Counted>(p.Get()).Get(), p.Get());
    EXPECT_FALSE(QZSTD::QueryInterface<Counted>(nullptr));
    void* pv = nullptr;
    EXPECT_FALSE(p->QueryInterface(Other::QZ_IID, &pv));
    EXPECT_EQ(pv, nullptr);
    p.Reset();
    EXPECT_EQ(nDestroyed, 1) << "the looked-up reference must have been released";
}

}  // namespace
