"""The installed service in a running system, with simulated masters on its USB.

Needs root, systemd, udevd, the kernel module vhci-hcd and both packages. Replugs and restarts
everything: only for a machine of its own, such as that of scripts/test-usb.
"""
