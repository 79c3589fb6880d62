// SPDX-License-Identifier: MIT
// The process names of the firmware's daemons, as the process monitor and the kernel know them: the
// kernel keeps 15 characters.
#pragma once

namespace prod
{

/** Balances the traffic over several WANs. */
inline constexpr const char *kMultiWanManager = "multiwan";

/** The PPP daemon of the L2TP client. */
inline constexpr const char *kL2tpPppDaemon = "pppd_l2tp";

/**
 * The daemons that each WAN has its own of, named with "_wan" and its number behind, in the order
 * in which an upgrade stops them.
 */
inline constexpr const char *kWanDaemons[] = {
    "ddns",       // dynamic-DNS client
    "pppd",       // PPPoE dialer
    "dhcpcd",     // DHCP client
    "pptp",       // PPTP client,
    "pptp_dhcp",  // and its DHCP client
    "l2tp",       // L2TP client,
    "l2tp_dhcp",  // and its DHCP client
    "db_pppd",    // the backup instances of the PPP dialer
    "db_dhcpcd",  // and of the DHCP client
};

/** The other daemons that an upgrade stops, in that order. */
inline constexpr const char *kDaemons[] = {
    "timer",         // timers
    "timesync",      // time synchronisation
    "sysserv",       // system service
    "portal",        // portal manager
    "userman",       // user manager
    "authman",       // authentication manager
    "udpserv",       // UDP service
    "upgradectl",    // upgrade controller
    "acagent",       // access-controller agent
    "pppd",          // PPP
    "pppoe-server",  // PPPoE server
    "dnsrelay",      // DNS relay
    "logserver",     // log server
    "logdebug",      // log debugger
    "ddns1",         // dynamic-DNS clients
    "ddns2",         //
    "ddns3",         //
    "upnpd",         // UPnP
    "arp_lan",       // ARP announcers
    "arp_wan",       //
    "telnetd",       // telnet
    "pptps",         // PPTP server
    "l2tps",         // L2TP server,
    "pppd_pptps",    // and their PPP instances
    "pppd_l2tps",    //
    "ipsec_ctl",     // IPsec
    "ipsec_ike",     //
    "ipsec_watch",   //
    "netctrl",       // network control
    "udevd",         // udev
    "gpioctl",       // GPIO controller
    "smbd",          // SMB server
    "ftpd",          // FTP server
    "sdwan_ctl",     // SD-WAN
    "sdwan_data",    //
    "mgmtd",         // management service
    "cloudc",        // cloud client
    "dhcps",         // DHCP server
    "netcheck",      // network checker
    "msgd",          // messages
    "cfmd",          // configuration manager
    "wlan_server",   // WLAN server
    "apd",           // access point
    "tunnelc",       // tunnel client
    "pptp_callmgr",  // PPTP call manager,
    "pppd_pptp",     // and its PPP instance
    kL2tpPppDaemon,  // L2TP client's PPP instance,
    "l2tpc",         // and the client
    "mesh_lldp",     // mesh LLDP agent
    "mesh_manager",  // mesh manager
};

/** The daemons that can start an upgrade, by SYSTEM_UPGRADE_TYPE_ENUM. */
inline constexpr const char *kUpgradeInitiators[] = {
    "httpd",      // web server
    "skyrelctl",  // cloud control daemon
    "appmgr",     // application manager
    "imsd",       // IMS daemon
};

}  // namespace prod
