/* A minimal program with a status item, a polled agent and a control port: the reference of
   growth.py. It registers an item, sends the agent three requests every two seconds on one persistent
   connection, answers every request on the control port with the same text, and starts CHILDREN idle
   children. It parses no content and has no menu.

     bare_tray AGENT-PORT CONTROL-PORT CHILDREN */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <time.h>
#include <unistd.h>

static const char answer[] =
    "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 52\r\n"
    "Connection: close\r\n\r\n{\"available\":false,\"enrolled\":false,\"running\":false}";
static const char* const paths[] = {"/api/status", "/api/roots", "/api/activity"};
static char buffer[1 << 16];
static int agent = -1;

static struct sockaddr_in loopback(const char* port) {
  struct sockaddr_in at = {.sin_family = AF_INET, .sin_port = htons(atoi(port))};
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return at;
}

static int listen_on(const char* port) {
  struct sockaddr_in at = loopback(port);
  int on = 1, listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(listener, (struct sockaddr*)&at, sizeof at) || listen(listener, SOMAXCONN)) exit(1);
  return listener;
}

/* Reads one answer with a Content-Length. Returns 0 if the connection is lost. */
static int read_answer(void) {
  size_t have = 0;
  long left = -1;
  while (left != 0) {
    ssize_t got = read(agent, buffer + have, sizeof buffer - 1 - have);
    if (got <= 0) return 0;
    if (left > 0) {
      left -= got;
      continue;
    }
    have += got;
    buffer[have] = 0;
    char* end = strstr(buffer, "\r\n\r\n");
    char* length = strcasestr(buffer, "content-length:");
    if (!end || !length) continue;
    left = atol(length + 15) - (long)(have - (end + 4 - buffer));
    have = 0;
  }
  return 1;
}

static void poll_agent(const char* port) {
  for (int i = 0; i < 3; ++i) {
    if (agent < 0) {
      struct sockaddr_in at = loopback(port);
      agent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (connect(agent, (struct sockaddr*)&at, sizeof at)) goto lost;
    }
    char request[200];
    int size = snprintf(request, sizeof request, "GET %s HTTP/1.1\r\nHost: localhost\r\n\r\n", paths[i]);
    if (write(agent, request, size) == size && read_answer()) continue;
  lost:
    close(agent);
    agent = -1;
    return;
  }
}

static int64_t milliseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

static void serve(int listener) {
  int peer = accept(listener, 0, 0);
  if (peer < 0) return;
  if (read(peer, buffer, sizeof buffer) > 0 && write(peer, answer, sizeof answer - 1)) {}
  close(peer);
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  signal(SIGPIPE, SIG_IGN);
  extern char** environ;
  sd_bus* bus = 0;
  if (sd_bus_open_user(&bus) < 0) return 1;
  const char* watcher = "org.kde.StatusNotifierWatcher";
  if (sd_bus_call_method_async(bus, 0, watcher, "/StatusNotifierWatcher", watcher,
                               "RegisterStatusNotifierItem", 0, 0, "s", "/StatusNotifierItem") < 0)
    return 1;
  sd_bus_flush(bus);
  int listener = listen_on(argv[2]);
  char* child[] = {"sleep", "100000", 0};
  for (int i = 0; i < atoi(argv[3]); ++i) {
    pid_t pid;
    posix_spawnp(&pid, child[0], 0, 0, child, environ);
  }
  int64_t next = milliseconds();
  for (;;) {
    while (sd_bus_process(bus, 0) > 0) {}
    if (milliseconds() >= next) {
      poll_agent(argv[1]);
      next += 2000;
    }
    int64_t left = next - milliseconds();
    struct pollfd watched[] = {{.fd = sd_bus_get_fd(bus), .events = POLLIN},
                               {.fd = listener, .events = POLLIN}};
    poll(watched, 2, left > 0 ? left : 0);
    if (watched[1].revents) serve(listener);
    if (watched[0].revents & POLLHUP) return 0;
  }
}
