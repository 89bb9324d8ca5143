/*
 * vqecho: an echo server and client on the library's sockets.
 *
 *   vqecho server PORT               serve until the interrupt key
 *   vqecho client HOST PORT [TEXT]   send each TEXT (or each line of
 *                                    standard input) and print the echo
 *
 * Try it on one machine in two terminals:
 *
 *   ./vqecho server 5555
 *   ./vqecho client 127.0.0.1 5555 hello "second message"
 *
 * Messages travel as fixed records of RECORD bytes (text, then zero
 * bytes), so that the receiving side knows how much to wait for: the
 * server collects a record with DutSocketRecvAll, the client waits for its
 * echo with DutSocketRecvTimeout. Sending is the system's own send().
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "vqutil/util.h"

#define RECORD 256
#define REPLY_TIMEOUT 5.0

static int send_record(D_INT4 s, const char *record) {
  /* MSG_NOSIGNAL: a peer that went away is an error, not a SIGPIPE. */
  return send(s, record, RECORD, MSG_NOSIGNAL) == RECORD;
}

static void show_failure(const char *what) {
  DutOut("vqecho: %s failed: error %ld (%s)\n", what, (long)DutErrNumGet(), DutErrStrGet());
}

/* Echoes records until the client leaves or the interrupt key is hit. */
static void serve_connection(D_INT4 c) {
  char record[RECORD];
  for (;;) {
    if (!DutSocketCheck(c, D_SOCKET_CHECK_READ, -1.0)) return;
    if (DutSocketRecvAll(c, record, RECORD, 0) != RECORD) return; /* client gone */
    record[RECORD - 1] = '\0';
    DutOut("vqecho: echoing \"%s\"\n", record);
    if (!send_record(c, record)) return;
  }
}

static int run_server(D_INT4 port) {
  D_INT4 server = DutSocketCreateServerTcp(port);
  if (server < 0) {
    show_failure("DutSocketCreateServerTcp");
    return 1;
  }
  DutInterruptInit(); /* the interrupt key ends the waits below */
  DutOut("vqecho: serving on port %ld; the interrupt key stops\n", (long)port);
  while (DutInterruptGet() == 0) {
    if (!DutSocketCheck(server, D_SOCKET_CHECK_READ, -1.0)) continue;
    D_INT4 c = DutSocketAccept(server);
    if (c < 0) {
      show_failure("DutSocketAccept");
      continue;
    }
    DutOut("vqecho: client connected\n");
    serve_connection(c);
    DutWinCloseSocket(c);
    DutOut("vqecho: client left\n");
  }
  DutWinCloseSocket(server);
  DutOut("vqecho: stopped\n");
  return 0;
}

/* Sends one message and prints its echo; 0 when the exchange failed. */
static int exchange(D_INT4 s, const char *text) {
  char record[RECORD] = {0};
  strncpy(record, text, RECORD - 1);
  if (!send_record(s, record)) {
    DutOut("vqecho: the server went away\n");
    return 0;
  }
  char reply[RECORD];
  D_INT4 timed_out = 0;
  D_INT4 n = DutSocketRecvTimeout(s, reply, RECORD, 0, REPLY_TIMEOUT, &timed_out);
  if (n != RECORD) {
    if (timed_out) {
      DutOut("vqecho: no echo within %g seconds\n", REPLY_TIMEOUT);
    } else {
      DutOut("vqecho: the server closed\n");
    }
    return 0;
  }
  reply[RECORD - 1] = '\0';
  DutOut("echo: %s\n", reply);
  return 1;
}

static int run_client(const char *host, D_INT4 port, int count, char **texts) {
  D_INT4 s = DutSocketCreateClientTcp(host, port);
  if (s < 0) {
    show_failure("DutSocketCreateClientTcp");
    return 1;
  }
  int ok = 1;
  if (count > 0) {
    for (int i = 0; i < count && ok; ++i) ok = exchange(s, texts[i]);
  } else {
    char line[RECORD];
    while (ok && fgets(line, sizeof line, stdin) != NULL) {
      line[strcspn(line, "\r\n")] = '\0';
      ok = exchange(s, line);
    }
  }
  DutWinCloseSocket(s);
  return ok ? 0 : 1;
}

int main(int argc, char **argv) {
  if (argc == 3 && strcmp(argv[1], "server") == 0) return run_server(atoi(argv[2]));
  if (argc >= 4 && strcmp(argv[1], "client") == 0) return run_client(argv[2], atoi(argv[3]), argc - 4, argv + 4);
  fprintf(stderr, "usage: %s server PORT\n       %s client HOST PORT [TEXT...]\n", argv[0], argv[0]);
  return 2;
}
