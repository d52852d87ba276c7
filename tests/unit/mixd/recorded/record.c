/*
 * Writes rtnetlink messages to a file, as the kernel sends them:
 *     record links|addresses|neighbours|forwarding FILE     a dump
 *     record events FILE                                    what it multicasts, until three quiet seconds
 */
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>

static char bytes[65536];

struct dump {
    const char *name;
    unsigned short type;
    unsigned char family; /* the first byte of each request's header */
    size_t header;
};

static const struct dump dumps[] = {
    {"links", RTM_GETLINK, AF_UNSPEC, sizeof(struct ifinfomsg)},
    {"addresses", RTM_GETADDR, AF_INET, sizeof(struct ifaddrmsg)},
    {"neighbours", RTM_GETNEIGH, AF_UNSPEC, sizeof(struct ndmsg)},
    {"forwarding", RTM_GETNEIGH, AF_BRIDGE, sizeof(struct ifinfomsg)},
};

static int is_over(ssize_t size)
{
    int left = (int)size;
    for (struct nlmsghdr *each = (struct nlmsghdr *)bytes; NLMSG_OK(each, left);
         each = NLMSG_NEXT(each, left))
        if (each->nlmsg_type == NLMSG_DONE || each->nlmsg_type == NLMSG_ERROR)
            return 1;
    return 0;
}

static int ask(int netlink, const char *name)
{
    struct {
        struct nlmsghdr head;
        unsigned char rest[32];
    } request = {{0}, {0}};
    for (size_t i = 0; i < sizeof dumps / sizeof *dumps; i++) {
        if (strcmp(dumps[i].name, name) != 0)
            continue;
        request.head.nlmsg_type = dumps[i].type;
        request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        request.head.nlmsg_len = (unsigned)(sizeof request.head + dumps[i].header);
        request.rest[0] = dumps[i].family;
        return send(netlink, &request, request.head.nlmsg_len, 0) < 0 ? -1 : 0;
    }
    return -1;
}

int main(int count, char **words)
{
    if (count != 3)
        return 2;
    const int events = strcmp(words[1], "events") == 0;
    const int netlink = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    struct sockaddr_nl here = {0};
    here.nl_family = AF_NETLINK;
    here.nl_groups = events ? RTMGRP_LINK | RTMGRP_NEIGH | RTMGRP_IPV4_IFADDR : 0;
    const struct timeval quiet = {3, 0};
    setsockopt(netlink, SOL_SOCKET, SO_RCVTIMEO, &quiet, sizeof quiet);
    FILE *file = fopen(words[2], "wb");
    if (file == NULL || bind(netlink, (struct sockaddr *)&here, sizeof here) < 0 ||
        (!events && ask(netlink, words[1]) < 0))
        return 1;
    ssize_t size;
    while ((size = recv(netlink, bytes, sizeof bytes, 0)) > 0) {
        fwrite(bytes, 1, (size_t)size, file);
        if (!events && is_over(size))
            break;
    }
    return fclose(file);
}
