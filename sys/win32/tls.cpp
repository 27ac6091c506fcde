// TLS client sessions with Schannel: see tls_impl.h.
//
// Schannel works on buffers and never touches the socket: the handshake
// hands out tokens to send and asks for more input until it is done, and the
// session encrypts and decrypts whole records. The socket calls of the layer
// (slscksend, slsckrecv) move the bytes, within the caller's limits. The
// server's certificate is checked here after the handshake (manual
// validation), against the system's roots or the certificates of a CA file,
// and against the host's name or address.
//
// Sections: reasons; trust; moving records; sessions.
#define SECURITY_WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <wincrypt.h>
#include <schannel.h>
#include <security.h>
#include <sspi.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/fault_impl.h"
#include "sys/tls_impl.h"

using sl_internal::tls_left_ms;
using sl_internal::tls_say;

#ifndef SP_PROT_TLS1_3_CLIENT
#define SP_PROT_TLS1_3_CLIENT 0x00002000
#endif

struct SlTlsTrust {
  CredHandle cred;
  HCERTSTORE roots;  // the CA file's certificates; null: the system's roots
  bool verify;
};

struct SlTls {
  CtxtHandle ctx;
  SlTlsTrust *trust;
  int64_t s;
  SecPkgContext_StreamSizes sizes;
  char *in;  // received bytes not yet decrypted
  size_t inlen, incap;
  char *plain;  // decrypted bytes not yet handed out
  size_t plainoff, plainlen, plaincap;
  bool broken;  // a fatal error happened: no closing alert may be sent
  bool closed;  // the server ended the session
  int32_t version;
};

namespace {

// --------------------------------------------------------------- reasons
void say_status(char *why, size_t whyl, const char *what, SECURITY_STATUS st) {
  char text[200];
  slcgems(static_cast<int32_t>(st), text, sizeof text);
  tls_say(why, whyl, what, text);
}

// ----------------------------------------------------------------- trust

// The certificates of a PEM file into a memory store; null with the reason.
HCERTSTORE load_pem(const char *path, char *why, size_t whyl) {
  int64_t h = -1;
  if (slfopen(path, SLF_READ, &h) != 0) {
    tls_say(why, whyl, "cannot use the CA file", "cannot open it");
    return nullptr;
  }
  slfinfo fi;
  char *text = nullptr;
  int64_t got = 0;
  if (slffstat(h, &fi) == 0 && fi.size >= 0 && fi.size < (64 << 20)) {
    text = static_cast<char *>(ss_mem_alc(static_cast<size_t>(fi.size) + 1));
    while (text != nullptr && got < fi.size) {
      int64_t k = slfread(h, text + got, static_cast<size_t>(fi.size - got));
      if (k <= 0) break;
      got += k;
    }
  }
  slfclose(h);
  if (text == nullptr) {
    tls_say(why, whyl, "cannot use the CA file", "cannot read it");
    return nullptr;
  }
  text[got] = '\0';
  HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
  int count = 0;
  static const char kBegin[] = "-----BEGIN CERTIFICATE-----";
  static const char kEnd[] = "-----END CERTIFICATE-----";
  for (char *p = store ? strstr(text, kBegin) : nullptr; p != nullptr; p = strstr(p, kBegin)) {
    char *e = strstr(p, kEnd);
    if (e == nullptr) break;
    e += sizeof kEnd - 1;
    DWORD n = 0;
    auto len = static_cast<DWORD>(e - p);
    if (CryptStringToBinaryA(p, len, CRYPT_STRING_BASE64HEADER, nullptr, &n, nullptr, nullptr) && n > 0) {
      auto *der = static_cast<BYTE *>(ss_mem_alc(n));
      if (der != nullptr && CryptStringToBinaryA(p, len, CRYPT_STRING_BASE64HEADER, der, &n, nullptr, nullptr) &&
          CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, der, n, CERT_STORE_ADD_ALWAYS, nullptr))
        ++count;
      ss_mem_fre(der);
    }
    p = e;
  }
  ss_mem_fre(text);
  if (count == 0) {
    if (store) CertCloseStore(store, 0);
    tls_say(why, whyl, "cannot use the CA file", "it holds no certificate");
    return nullptr;
  }
  return store;
}

SECURITY_STATUS acquire(CredHandle *cred, DWORD protocols) {
  SCHANNEL_CRED sc{};
  sc.dwVersion = SCHANNEL_CRED_VERSION;
  sc.grbitEnabledProtocols = protocols;
  // The certificate is checked here (verify_peer), which also serves a CA
  // file and the choice not to check at all; no client certificate.
  sc.dwFlags = SCH_CRED_MANUAL_CRED_VALIDATION | SCH_CRED_NO_DEFAULT_CREDS | SCH_USE_STRONG_CRYPTO;
  TimeStamp expiry;
  return AcquireCredentialsHandleA(nullptr, const_cast<char *>(UNISP_NAME_A), SECPKG_CRED_OUTBOUND, nullptr, &sc,
                                   nullptr, nullptr, cred, &expiry);
}

// ---------------------------------------------------------- moving records

bool grow(char **buf, size_t *cap, size_t need) noexcept {
  if (need <= *cap) return true;
  size_t c = *cap ? *cap : 16384;
  while (c < need) c *= 2;
  void *p = ss_mem_ralc(*buf, c);
  if (p == nullptr) return false;
  *buf = static_cast<char *>(p);
  *cap = c;
  return true;
}

// More received bytes after the ones kept: > 0, or a socket result.
int64_t fill(SlTls *t, int32_t ms) {
  if (t->inlen == t->incap && !grow(&t->in, &t->incap, t->incap * 2)) return SL_SCK_ERR;
  int64_t k = slsckrecv(t->s, t->in + t->inlen, t->incap - t->inlen, ms);
  if (k > 0) t->inlen += static_cast<size_t>(k);
  return k;
}

// Sends and frees the token buffers Schannel allocated.
int64_t send_tokens(SlTls *t, SecBuffer *out, int count, int32_t ms) {
  int64_t rc = 0;
  for (int i = 0; i < count; ++i) {
    if (out[i].pvBuffer == nullptr) continue;
    if (rc == 0 && out[i].cbBuffer > 0) rc = slscksend(t->s, out[i].pvBuffer, out[i].cbBuffer, ms);
    FreeContextBuffer(out[i].pvBuffer);
    out[i].pvBuffer = nullptr;
  }
  return rc;
}

// Keeps the bytes Schannel did not use (an EXTRA buffer) at the front of in.
void keep_extra(SlTls *t, const SecBuffer &extra) {
  if (extra.BufferType == SECBUFFER_EXTRA && extra.cbBuffer > 0) {
    memmove(t->in, t->in + (t->inlen - extra.cbBuffer), extra.cbBuffer);
    t->inlen = extra.cbBuffer;
  } else {
    t->inlen = 0;
  }
}

constexpr DWORD kIscFlags = ISC_REQ_SEQUENCE_DETECT | ISC_REQ_REPLAY_DETECT | ISC_REQ_CONFIDENTIALITY |
                            ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_STREAM | ISC_REQ_EXTENDED_ERROR |
                            ISC_REQ_MANUAL_CRED_VALIDATION;

// Runs handshake messages (the handshake itself, or what arrives after it
// in TLS 1.3) until Schannel is done with the input: 0, or a result.
int64_t handshake(SlTls *t, const char *target, bool first, int32_t ms, uint64_t start, char *why, size_t whyl);

int64_t handshake(SlTls *t, const char *target, bool first, int32_t ms, uint64_t start, char *why, size_t whyl) {
  // After the handshake Schannel is given what it left over first, even
  // nothing: it says when it needs more.
  bool need_input = false;
  for (;;) {
    if (need_input) {
      int64_t k = fill(t, tls_left_ms(ms, start));
      if (k <= 0) return k == SL_SCK_EOF ? SL_SCK_EOF : k;
    }
    SecBuffer in[2] = {{static_cast<unsigned long>(t->inlen), SECBUFFER_TOKEN, t->in}, {0, SECBUFFER_EMPTY, nullptr}};
    SecBufferDesc indesc{SECBUFFER_VERSION, 2, in};
    SecBuffer out[1] = {{0, SECBUFFER_TOKEN, nullptr}};
    SecBufferDesc outdesc{SECBUFFER_VERSION, 1, out};
    ULONG attrs = 0;
    SECURITY_STATUS st = InitializeSecurityContextA(
        &t->trust->cred, first ? nullptr : &t->ctx, const_cast<char *>(target), kIscFlags, 0, 0,
        first ? nullptr : &indesc, 0, first ? &t->ctx : nullptr, &outdesc, &attrs, nullptr);
    first = false;
    if (st == SEC_E_INCOMPLETE_MESSAGE) {
      need_input = true;
      continue;
    }
    int64_t sent = send_tokens(t, out, 1, tls_left_ms(ms, start));
    if (st != SEC_E_OK && st != SEC_I_CONTINUE_NEEDED && st != SEC_I_INCOMPLETE_CREDENTIALS) {
      t->broken = true;
      say_status(why, whyl, "TLS handshake failed", st);
      return SL_SSL_PROTO;
    }
    if (sent != 0) return sent;
    keep_extra(t, in[1]);
    if (st == SEC_E_OK) return 0;
    need_input = t->inlen == 0;
  }
}

// The server's certificate against the trust and the host.
bool verify_peer(SlTls *t, const char *host, char *why, size_t whyl) {
  PCCERT_CONTEXT cert = nullptr;
  if (QueryContextAttributesA(&t->ctx, SECPKG_ATTR_REMOTE_CERT_CONTEXT, &cert) != SEC_E_OK || cert == nullptr) {
    tls_say(why, whyl, "the server sent no certificate");
    return false;
  }
  CERT_CHAIN_PARA para{};
  para.cbSize = sizeof para;
  // The server's intermediates, and the CA file's certificates.
  HCERTSTORE extra = cert->hCertStore;
  HCERTSTORE coll = nullptr;
  if (t->trust->roots != nullptr) {
    coll = CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr);
    if (coll != nullptr) {
      CertAddStoreToCollection(coll, cert->hCertStore, 0, 0);
      CertAddStoreToCollection(coll, t->trust->roots, 0, 0);
      extra = coll;
    }
  }
  PCCERT_CHAIN_CONTEXT chain = nullptr;
  bool ok = CertGetCertificateChain(nullptr, cert, nullptr, extra, &para, 0, nullptr, &chain) && chain != nullptr;
  const char *bad = ok ? nullptr : "cannot build the certificate chain";
  if (ok && t->trust->roots != nullptr) {
    // With a CA file the chain must end at one of its certificates, which
    // the system does not know as roots.
    const CERT_SIMPLE_CHAIN *sc = chain->rgpChain[0];
    PCCERT_CONTEXT top = sc->rgpElement[sc->cElement - 1]->pCertContext;
    PCCERT_CONTEXT found = CertFindCertificateInStore(t->trust->roots, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING,
                                                      top, nullptr);
    if (found == nullptr) {
      ok = false;
      bad = "the certificate does not lead to the CA file";
    } else {
      CertFreeCertificateContext(found);
    }
  }
  if (ok) {
    wchar_t whost[256];
    if (MultiByteToWideChar(CP_UTF8, 0, host, -1, whost, 256) <= 0) whost[0] = L'\0';
    SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl{};
    ssl.cbSize = sizeof ssl;
    ssl.dwAuthType = AUTHTYPE_SERVER;
    ssl.pwszServerName = whost;
    CERT_CHAIN_POLICY_PARA pp{};
    pp.cbSize = sizeof pp;
    pp.pvExtraPolicyPara = &ssl;
    if (t->trust->roots != nullptr) pp.dwFlags = CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG;
    CERT_CHAIN_POLICY_STATUS ps{};
    ps.cbSize = sizeof ps;
    if (!CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain, &pp, &ps) || ps.dwError != 0) {
      ok = false;
      char text[200];
      slcgems(static_cast<int32_t>(ps.dwError), text, sizeof text);
      tls_say(why, whyl, "certificate not accepted", text);
    }
  } else if (bad != nullptr) {
    tls_say(why, whyl, bad);
  }
  if (chain != nullptr) CertFreeCertificateChain(chain);
  if (coll != nullptr) CertCloseStore(coll, 0);
  CertFreeCertificateContext(cert);
  return ok;
}

void free_session(SlTls *t) {
  DeleteSecurityContext(&t->ctx);
  ss_mem_fre(t->in);
  ss_mem_fre(t->plain);
  ss_mem_fre(t);
}

bool ip_literal(const char *host) {
  unsigned char ip[16];
  return inet_pton(AF_INET, host, ip) == 1 || inet_pton(AF_INET6, host, ip) == 1;
}

// Decrypts what was received until there is plain data, waiting at most
// `ms` for more: > 0 (plain data is ready), or a result.
int64_t pump(SlTls *t, int32_t ms, char *why, size_t whyl) {
  uint64_t start = slmonons();
  for (;;) {
    if (t->plainlen > t->plainoff) return 1;
    if (t->closed) return SL_SCK_EOF;
    if (t->inlen > 0) {
      SecBuffer b[4] = {{static_cast<unsigned long>(t->inlen), SECBUFFER_DATA, t->in},
                        {0, SECBUFFER_EMPTY, nullptr},
                        {0, SECBUFFER_EMPTY, nullptr},
                        {0, SECBUFFER_EMPTY, nullptr}};
      SecBufferDesc d{SECBUFFER_VERSION, 4, b};
      // An alert record (content type 21) that decrypts to nothing is the
      // server's closing alert: Windows says so (SEC_I_CONTEXT_EXPIRED),
      // Wine's Schannel returns plain success for it.
      bool alert = static_cast<unsigned char>(t->in[0]) == 21;
      SECURITY_STATUS st = DecryptMessage(&t->ctx, &d, 0, nullptr);
      if (st == SEC_E_OK || st == SEC_I_RENEGOTIATE || st == SEC_I_CONTEXT_EXPIRED) {
        SecBuffer *data = nullptr, *extra = nullptr;
        for (auto &x : b) {
          if (x.BufferType == SECBUFFER_DATA && data == nullptr) data = &x;
          if (x.BufferType == SECBUFFER_EXTRA && extra == nullptr) extra = &x;
        }
        if (data != nullptr && data->cbBuffer > 0) {
          if (!grow(&t->plain, &t->plaincap, data->cbBuffer)) return SL_SCK_ERR;
          memcpy(t->plain, data->pvBuffer, data->cbBuffer);
          t->plainoff = 0;
          t->plainlen = data->cbBuffer;
        }
        SecBuffer none{0, SECBUFFER_EMPTY, nullptr};
        keep_extra(t, extra != nullptr ? *extra : none);
        if (st == SEC_I_CONTEXT_EXPIRED || (st == SEC_E_OK && alert && (data == nullptr || data->cbBuffer == 0)))
          t->closed = true;
        if (st == SEC_I_RENEGOTIATE) {
          // Post-handshake messages of TLS 1.3 (session tickets, key
          // updates) go back through the handshake.
          int64_t r = handshake(t, nullptr, false, tls_left_ms(ms, start), slmonons(), why, whyl);
          if (r != 0 && r != SL_SCK_TIMEOUT) return r;
        }
        continue;
      }
      if (st != SEC_E_INCOMPLETE_MESSAGE) {
        t->broken = true;
        say_status(why, whyl, "TLS failure", st);
        return SL_SSL_PROTO;
      }
    }
    int64_t k = fill(t, tls_left_ms(ms, start));
    if (k <= 0) return k;
  }
}

}  // namespace

// ----------------------------------------------------------------- trust
SlTlsTrust *slssltrust(const char *cafile, uint32_t flags, char *why, size_t whyl) noexcept {
  if (SL_FAULT(SL_FAULT_SSL_TRUST)) {
    tls_say(why, whyl, "refused by a fault point");
    return nullptr;
  }
  auto *t = static_cast<SlTlsTrust *>(ss_mem_calc(sizeof(SlTlsTrust)));
  if (t == nullptr) {
    tls_say(why, whyl, "out of memory");
    return nullptr;
  }
  t->verify = (flags & SL_SSL_NOVERIFY) == 0;
  if (t->verify && cafile != nullptr) {
    t->roots = load_pem(cafile, why, whyl);
    if (t->roots == nullptr) {
      ss_mem_fre(t);
      return nullptr;
    }
  }
  // TLS 1.3 where the system has it, else 1.2 alone.
  SECURITY_STATUS st = acquire(&t->cred, SP_PROT_TLS1_2_CLIENT | SP_PROT_TLS1_3_CLIENT);
  if (st != SEC_E_OK) st = acquire(&t->cred, SP_PROT_TLS1_2_CLIENT);
  if (st != SEC_E_OK) {
    say_status(why, whyl, "cannot set up TLS", st);
    if (t->roots) CertCloseStore(t->roots, 0);
    ss_mem_fre(t);
    return nullptr;
  }
  return t;
}

void slssltrustfree(SlTlsTrust *t) noexcept {
  if (t == nullptr) return;
  FreeCredentialsHandle(&t->cred);
  if (t->roots) CertCloseStore(t->roots, 0);
  ss_mem_fre(t);
}

// -------------------------------------------------------------- sessions
int64_t slsslopen(SlTlsTrust *trust, int64_t s, const char *host, int32_t ms, SlTls **out, char *why,
                  size_t whyl) noexcept {
  *out = nullptr;
  if (SL_FAULT(SL_FAULT_SSL_OPEN)) {
    tls_say(why, whyl, "refused by a fault point");
    return SL_SCK_ERR;
  }
  auto *t = static_cast<SlTls *>(ss_mem_calc(sizeof(SlTls)));
  if (t == nullptr || !grow(&t->in, &t->incap, 1 << 16)) {
    tls_say(why, whyl, "out of memory");
    ss_mem_fre(t);
    return SL_SCK_ERR;
  }
  t->trust = trust;
  t->s = s;
  // The name goes out for the server to choose its certificate (never an
  // address: the protocol forbids it).
  const char *target = ip_literal(host) ? nullptr : host;
  uint64_t start = slmonons();
  int64_t st = handshake(t, target, true, ms, start, why, whyl);
  if (st == 0 && trust->verify && !verify_peer(t, host, why, whyl)) st = SL_SSL_VERIFY;
  if (st == 0 && QueryContextAttributesA(&t->ctx, SECPKG_ATTR_STREAM_SIZES, &t->sizes) != SEC_E_OK) {
    tls_say(why, whyl, "TLS failure", "no stream sizes");
    st = SL_SSL_PROTO;
  }
  if (st != 0) {
    if (st == SL_SCK_TIMEOUT || st == SL_SCK_EOF || st == SL_SCK_ERR) t->broken = true;
    free_session(t);
    return st;
  }
  SecPkgContext_ConnectionInfo ci{};
  t->version = QueryContextAttributesA(&t->ctx, SECPKG_ATTR_CONNECTION_INFO, &ci) == SEC_E_OK &&
                       (ci.dwProtocol & SP_PROT_TLS1_3_CLIENT) != 0
                   ? 13
                   : 12;
  *out = t;
  return 0;
}

int64_t slsslsend(SlTls *t, const void *buf, size_t n, int32_t ms, char *why, size_t whyl) noexcept {
  if (SL_FAULT(SL_FAULT_SSL_IO)) {
    t->broken = true;
    return SL_SCK_ERR;
  }
  const SecPkgContext_StreamSizes &z = t->sizes;
  size_t recmax = z.cbHeader + z.cbMaximumMessage + z.cbTrailer;
  auto *rec = static_cast<char *>(ss_mem_alc(recmax));
  if (rec == nullptr) {
    slseterrno(ERROR_NOT_ENOUGH_MEMORY);
    return SL_SCK_ERR;
  }
  auto *p = static_cast<const char *>(buf);
  int64_t rc = 0;
  while (n > 0 && rc == 0) {
    size_t k = n < z.cbMaximumMessage ? n : z.cbMaximumMessage;
    memcpy(rec + z.cbHeader, p, k);
    SecBuffer b[4] = {{z.cbHeader, SECBUFFER_STREAM_HEADER, rec},
                      {static_cast<unsigned long>(k), SECBUFFER_DATA, rec + z.cbHeader},
                      {z.cbTrailer, SECBUFFER_STREAM_TRAILER, rec + z.cbHeader + k},
                      {0, SECBUFFER_EMPTY, nullptr}};
    SecBufferDesc d{SECBUFFER_VERSION, 4, b};
    SECURITY_STATUS st = EncryptMessage(&t->ctx, 0, &d, 0);
    if (st != SEC_E_OK) {
      t->broken = true;
      say_status(why, whyl, "TLS failure", st);
      rc = SL_SSL_PROTO;
      break;
    }
    rc = slscksend(t->s, rec, b[0].cbBuffer + b[1].cbBuffer + b[2].cbBuffer, ms);
    if (rc != 0) t->broken = true;
    p += k;
    n -= k;
  }
  ss_mem_fre(rec);
  return rc;
}

int64_t slsslrecv(SlTls *t, void *buf, size_t n, int32_t ms, char *why, size_t whyl) noexcept {
  if (SL_FAULT(SL_FAULT_SSL_IO)) {
    t->broken = true;
    return SL_SCK_ERR;
  }
  int64_t r = pump(t, ms, why, whyl);
  if (r <= 0) return r;
  size_t k = t->plainlen - t->plainoff;
  if (k > n) k = n;
  if (k > INT_MAX) k = INT_MAX;
  memcpy(buf, t->plain + t->plainoff, k);
  t->plainoff += k;
  return static_cast<int64_t>(k);
}

int32_t slsslidle(SlTls *t) noexcept {
  if (t->broken || t->closed || t->plainlen > t->plainoff) return 0;
  if (t->inlen == 0 && slsckidle(t->s)) return 1;
  // Something came: a session ticket is no reason to give the connection
  // up; application data, a closing alert or the end of the stream are.
  int64_t r = pump(t, 0, nullptr, 0);
  return r == SL_SCK_TIMEOUT && !t->closed && slsckidle(t->s) ? 1 : 0;
}

int32_t slsslversion(const SlTls *t) noexcept { return t->version; }

void slsslclose(SlTls *t) noexcept {
  if (t == nullptr) return;
  if (!t->broken) {
    // The closing alert, if the socket takes it now.
    DWORD kind = SCHANNEL_SHUTDOWN;
    SecBuffer b{sizeof kind, SECBUFFER_TOKEN, &kind};
    SecBufferDesc d{SECBUFFER_VERSION, 1, &b};
    if (ApplyControlToken(&t->ctx, &d) == SEC_E_OK) {
      SecBuffer out{0, SECBUFFER_TOKEN, nullptr};
      SecBufferDesc od{SECBUFFER_VERSION, 1, &out};
      ULONG attrs = 0;
      InitializeSecurityContextA(&t->trust->cred, &t->ctx, nullptr, kIscFlags, 0, 0, nullptr, 0, nullptr, &od, &attrs,
                                 nullptr);
      send_tokens(t, &out, 1, 0);
    }
  }
  free_session(t);
}
