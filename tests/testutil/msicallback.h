// A Windows Installer callback for the tests: notes every message as "kind:text" and answers each with
// the answer it was made with (the fake installer's tests see it travel back; the real one wants 0).
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "common/msisetup/msisetup.h"

namespace QZTEST {

class RecordingMsiCallback : public QZRI::QZMsiSetupCallback
{
public:
    explicit RecordingMsiCallback(int nAnswer) : m_nAnswer(nAnswer) {}
    int OnError(const std::wstring& wstr) override { return Note(L"error", wstr); }
    int OnWarning(const std::wstring& wstr) override { return Note(L"warning", wstr); }
    int OnUser(const std::wstring& wstr) override { return Note(L"user", wstr); }
    int OnInformation(const std::wstring& wstr) override { return Note(L"info", wstr); }
    int OnFilesInUse(const std::vector<std::pair<std::wstring, std::wstring>>& vec) override
    {
        return Note(L"files", vec.empty() ? L"" : vec.front().first + L"/" + vec.back().second);
    }
    int OnActionStart(const std::wstring& wstr) override { return Note(L"action", wstr); }
    int OnActionData(const std::wstring& wstr) override { return Note(L"data", wstr); }
    int OnProgress(const std::wstring& wstr) override { return Note(L"progress", wstr); }
    std::vector<std::wstring> m_vecNotes;

private:
    int Note(const wchar_t* szKind, const std::wstring& wstr)
    {
        m_vecNotes.push_back(std::wstring(szKind) + L":" + wstr);
        return m_nAnswer;
    }
    int m_nAnswer;
};

}  // namespace QZTEST
