# SPDX-License-Identifier: MIT
# A made-up SDK, as much of it as a package of one CMake project needs: a firmware's variables, and a cross compiler of Debian's.
ARCH:=arm
TARGET_CROSS:=arm-linux-gnueabihf-
INCLUDE_DIR:=$(TOPDIR)/include
DL_DIR:=$(TOPDIR)/dl
BUILD_DIR:=$(TOPDIR)/build_dir
STAGING_DIR:=$(TOPDIR)/staging_dir
PACKAGE_DIR:=$(TOPDIR)/bin

TARGET_CC:=$(TARGET_CROSS)gcc
TARGET_CXX:=$(TARGET_CROSS)g++
TARGET_AR:=$(TARGET_CROSS)gcc-ar
TARGET_NM:=$(TARGET_CROSS)gcc-nm
TARGET_RANLIB:=$(TARGET_CROSS)gcc-ranlib
STRIP:=$(TARGET_CROSS)strip --strip-all
# A firmware has its own opinion of hardening, and of paths in programs.
TARGET_CFLAGS:=-Os -pipe -fno-caller-saves -Wformat -Werror=format-security -fstack-protector -U_FORTIFY_SOURCE \
	-D_FORTIFY_SOURCE=1 -ffile-prefix-map=$(BUILD_DIR)=
TARGET_LDFLAGS:=-L$(STAGING_DIR)/usr/lib -Wl,-z,now -Wl,-z,relro

INSTALL_DIR:=install -d -m0755
INSTALL_BIN:=install -m0755
INSTALL_CONF:=install -m0600
INSTALL_DATA:=install -m0644
