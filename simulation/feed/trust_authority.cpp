// trust_authority FILE: has the user of this machine trust the authority whose certificate is in
// the file, in DER. For machines that are made for a test and thrown away.
#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: trust_authority FILE\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  const std::vector<char> certificate{std::istreambuf_iterator<char>(file), {}};
  const HCERTSTORE store =
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
  const bool added =
      store != nullptr &&
      CertAddEncodedCertificateToStore(
          store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(certificate.data()),
          static_cast<DWORD>(certificate.size()), CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
  if (!added) std::fprintf(stderr, "%s: not trusted: %lu\n", argv[1], GetLastError());
  if (store != nullptr) CertCloseStore(store, 0);
  return added ? 0 : 1;
}
