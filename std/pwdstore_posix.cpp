// AES-256-GCM under the machine key file.
#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "std/error.h"
#include "std/pwdstore.h"

namespace QZSTD {
namespace {

constexpr std::string_view MAGIC = "QZP1";
constexpr size_t KEY_SIZE = 32;
constexpr size_t NONCE_SIZE = 12;
constexpr size_t TAG_SIZE = 16;

std::string KeyPath()
{
    const char* sz = std::getenv("QZ_MACHINE_KEY_PATH");
    return sz && *sz ? sz : "/var/opt/qz/machine.key";
}

std::string ReadKey(int fd)
{
    struct stat st = {};
    if (fstat(fd, &st) != 0)
        QZ_THROW_SYSTEM();
    // A key that others may read protects nothing.
    if ((st.st_mode & 077) != 0 || st.st_size != static_cast<off_t>(KEY_SIZE))
        QZ_THROW_SYSTEM_CODE(EACCES);
    std::string strKey(KEY_SIZE, '\0');
    if (read(fd, strKey.data(), KEY_SIZE) != static_cast<ssize_t>(KEY_SIZE))
        QZ_THROW_SYSTEM();
    return strKey;
}

// The machine key, made on first use (only one writer wins the exclusive creation).
std::string MachineKey()
{
    const std::string strPath = KeyPath();
    int fd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
        const std::string strDir = strPath.substr(0, strPath.rfind('/'));
        if (!strDir.empty())
            mkdir(strDir.c_str(), 0700);
        const std::string strTemp = strPath + ".new" + std::to_string(getpid());
        const int fdNew = open(strTemp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fdNew < 0)
            QZ_THROW_SYSTEM();
        unsigned char key[KEY_SIZE];
        const bool bOk =
            RAND_bytes(key, KEY_SIZE) == 1 && write(fdNew, key, KEY_SIZE) == KEY_SIZE && fsync(fdNew) == 0;
        close(fdNew);
        // link() fails when another process made the key first: its key is the one.
        if (!bOk || (link(strTemp.c_str(), strPath.c_str()) != 0 && errno != EEXIST)) {
            unlink(strTemp.c_str());
            QZ_THROW_SYSTEM();
        }
        unlink(strTemp.c_str());
        fd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (fd < 0)
        QZ_THROW_SYSTEM();
    std::unique_ptr<int, void (*)(int*)> closer(&fd, [](int* p) { close(*p); });
    return ReadKey(fd);
}

using CipherPtr = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

[[noreturn]] void Damaged()
{
    QZ_THROW_STD(Err::BAD_PARAM, "protected data");
}

}  // namespace

std::string ProtectData(std::string_view svClear)
{
    const std::string strKey = MachineKey();
    unsigned char nonce[NONCE_SIZE];
    if (RAND_bytes(nonce, NONCE_SIZE) != 1)
        QZ_ASSERTION_FAILED("RAND_bytes");
    CipherPtr pCtx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    std::string strOut(MAGIC);
    strOut.append(reinterpret_cast<const char*>(nonce), NONCE_SIZE);
    std::string strCipher(svClear.size(), '\0');
    int nLen = 0;
    int nFinal = 0;
    unsigned char tag[TAG_SIZE];
    if (!pCtx ||
        EVP_EncryptInit_ex(pCtx.get(), EVP_aes_256_gcm(), nullptr,
                           reinterpret_cast<const unsigned char*>(strKey.data()), nonce) != 1 ||
        EVP_EncryptUpdate(pCtx.get(), reinterpret_cast<unsigned char*>(strCipher.data()), &nLen,
                          reinterpret_cast<const unsigned char*>(svClear.data()),
                          static_cast<int>(svClear.size())) != 1 ||
        EVP_EncryptFinal_ex(pCtx.get(), nullptr, &nFinal) != 1 ||
        EVP_CIPHER_CTX_ctrl(pCtx.get(), EVP_CTRL_GCM_GET_TAG, TAG_SIZE, tag) != 1)
        QZ_ASSERTION_FAILED("EVP_Encrypt");
    strOut += strCipher;
    strOut.append(reinterpret_cast<const char*>(tag), TAG_SIZE);
    return strOut;
}

std::string UnprotectData(std::string_view svProtected)
{
    if (svProtected.size() < MAGIC.size() + NONCE_SIZE + TAG_SIZE ||
        svProtected.substr(0, MAGIC.size()) != MAGIC)
        Damaged();
    const std::string strKey = MachineKey();
    const auto* pNonce = reinterpret_cast<const unsigned char*>(svProtected.data() + MAGIC.size());
    const std::string_view svCipher = svProtected.substr(
        MAGIC.size() + NONCE_SIZE, svProtected.size() - MAGIC.size() - NONCE_SIZE - TAG_SIZE);
    std::string strTag(svProtected.substr(svProtected.size() - TAG_SIZE));
    CipherPtr pCtx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    std::string strClear(svCipher.size(), '\0');
    int nLen = 0;
    int nFinal = 0;
    if (!pCtx ||
        EVP_DecryptInit_ex(pCtx.get(), EVP_aes_256_gcm(), nullptr,
                           reinterpret_cast<const unsigned char*>(strKey.data()), pNonce) != 1 ||
        EVP_DecryptUpdate(pCtx.get(), reinterpret_cast<unsigned char*>(strClear.data()), &nLen,
                          reinterpret_cast<const unsigned char*>(svCipher.data()),
                          static_cast<int>(svCipher.size())) != 1 ||
        EVP_CIPHER_CTX_ctrl(pCtx.get(), EVP_CTRL_GCM_SET_TAG, TAG_SIZE, strTag.data()) != 1 ||
        EVP_DecryptFinal_ex(pCtx.get(), nullptr, &nFinal) != 1)
        Damaged();
    return strClear;
}

}  // namespace QZSTD
