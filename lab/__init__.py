# SPDX-License-Identifier: MIT
"""The virtual router: network namespaces, real servers behind the ports, and scenarios that drive the daemon."""
