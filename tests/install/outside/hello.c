/*
 * hello.c - a program outside the source tree that uses an installed
 * kelcore10: start, a heap, an error record, a number, stop.
 * Built by tests/install/run_install_test.sh through pkg-config and through
 * find_package(kelcore10); both builds must print the same lines.
 */
#include <stdio.h>
#include <string.h>

#include <kelmsg_kelcore_lmm.h>
#include <kelmsg_kelcore_lpu.h>
#include <lem.h>
#include <lmm.h>
#include <lnx.h>
#include <lpm.h>
#include <lpu.h>

int main(void) {
  lcorectx *ctx = lpminit();
  if (ctx == NULL) {
    fprintf(stderr, "hello: lpminit failed\n");
    return 1;
  }
  void *mctx = ctx->lmmctx;

  /* A heap of our own below the top heap, one block from it. */
  lmmheap *heap = NULL;
  if (lmmhpinit(mctx, &heap, lmmtophp(mctx), 0, NULL, "hello", __LINE__, NULL) != 0) {
    fprintf(stderr, "hello: lmmhpinit failed\n");
    return 1;
  }
  char *block = lmmmalloc(mctx, heap, 32, 0, "hello", __LINE__);
  if (block == NULL) {
    fprintf(stderr, "hello: lmmmalloc failed\n");
    return 1;
  }
  strcpy(block, "heap ok");
  printf("%s\n", block);

  /* A request of zero bytes is refused and leaves a record on the stack. */
  if (lmmmalloc(mctx, heap, 0, 0, "hello", __LINE__) != NULL) {
    fprintf(stderr, "hello: a zero-byte request succeeded\n");
    return 1;
  }
  char msg[256];
  lemgem(ctx->lemctx, 1, msg, sizeof msg);
  printf("error %d: %s\n", (int)lemgec(ctx->lemctx, 1), msg);
  if (lemgec(ctx->lemctx, 1) != KELMSG_LMM_BADARG) {
    fprintf(stderr, "hello: not the message number of the installed header\n");
    return 1;
  }
  lemces(ctx->lemctx);

  /* A refused connection is told apart from a time-out by its number. */
  void *uctx = lpuini(ctx);
  lpuhc *client = lpuhcnew(uctx);
  lpureq req = {0};
  req.url = "http://127.0.0.1:1/";
  lpuresp resp;
  if (lpuhreq(client, &req, mctx, heap, &resp) == 0 || lemgec(ctx->lemctx, 1) != KELMSG_LPU_CONNECT ||
      KELMSG_LPU_CONNECT == KELMSG_LPU_TIMEOUT) {
    fprintf(stderr, "hello: a refused connection is not KELMSG_LPU_CONNECT\n");
    return 1;
  }
  printf("refused connection: message %d\n", (int)KELMSG_LPU_CONNECT);
  lemces(ctx->lemctx);
  lpuhcfree(client);
  lputrm(uctx);

  /* A decimal literal in, its plain text out. */
  const char *lit = "  -12345.678900e2 ";
  uint8_t num[32];
  size_t numlen = 0, consumed = 0;
  if (lnxcpn(lit, strlen(lit), num, &numlen, 0, 0, 0, 0, &consumed, NULL) == NULL || consumed == 0) {
    fprintf(stderr, "hello: lnxcpn failed\n");
    return 1;
  }
  char text[LNX_TEXT_MAX];
  size_t textlen = 0;
  if (lnxn2t(num, numlen, LNX_TEXT_PLAIN, 0, text, sizeof text, &textlen) != 0) {
    fprintf(stderr, "hello: lnxn2t failed\n");
    return 1;
  }
  printf("number %.*s\n", (int)textlen, text);

  lmmfree(mctx, heap, block, 0);
  lmmhpfree(mctx, heap, 0);
  if (lpmterm(ctx) != 0) {
    fprintf(stderr, "hello: lpmterm failed\n");
    return 1;
  }
  printf("stopped\n");
  return 0;
}
