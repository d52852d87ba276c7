/*
 * A listing with a callback: the IPv6 neighbours of an interface, or all of them.
 *
 *     cc neighbours.c $(pkg-config --cflags --libs libmix)
 */
#include <libmix/nd.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

/* Where things stand in a row; libmix/nd.h has them. */
enum { address_at = 0, interface_at = 22, interface_size = 32, mac_at = 54, flags_at = 61 };

struct wish {
    const char *interface; /* NULL: any */
    unsigned shown;
};

/* Called for each row, whose bytes are there during the call only. */
static int show(const void *row, void *context, int first)
{
    const unsigned char *bytes = row;
    const unsigned char *mac = bytes + mac_at;
    struct wish *wish = context;
    char interface[interface_size + 1] = "";
    char address[INET6_ADDRSTRLEN];

    memcpy(interface, bytes + interface_at, interface_size);
    if (first)
        printf("%-26s %-17s %-8s\n", "address", "MAC address", "interface");
    if (wish->interface && strcmp(wish->interface, interface) != 0)
        return 0;
    inet_ntop(AF_INET6, bytes + address_at, address, sizeof address);
    printf("%-26s %02x:%02x:%02x:%02x:%02x:%02x %s%s\n", address, mac[0], mac[1], mac[2], mac[3], mac[4],
           mac[5], interface, bytes[flags_at] & 2 ? " static" : "");
    wish->shown++;
    return 0;
}

int main(int argc, char **argv)
{
    struct wish wish = {argc > 1 ? argv[1] : NULL, 0};
    uint32_t rows = get_nd_items_detail(0, 0, 0, NULL, show, &wish, printf, 0, 0, 0, 0);

    printf("%u of %u neighbours\n", wish.shown, (unsigned)rows);
    return 0;
}
