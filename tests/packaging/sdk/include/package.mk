# SPDX-License-Identifier: MIT
# Each package of a Makefile becomes a folder below bin/: `files`, and what a package manager wants to know beside them.
$(foreach name,PKG_NAME PKG_VERSION PKG_RELEASE PKG_SOURCE PKG_HASH PKG_LICENSE PKG_LICENSE_FILES PKG_MAINTAINER, \
	$(if $($(name)),,$(error $(name) is not set)))
PKG_BUILD_DIR?=$(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)
PKG_INSTALL_DIR?=$(PKG_BUILD_DIR)/ipkg-install

ifeq ($(PKG_ASLR_PIE_REGULAR),1)
  TARGET_CFLAGS+=-fPIC
  TARGET_LDFLAGS+=-pie
endif

define Build/Prepare
	mkdir -p $(BUILD_DIR)
	tar -C $(BUILD_DIR) -xf $(DL_DIR)/$(PKG_SOURCE)
	cd $(PKG_BUILD_DIR) && ls $(PKG_LICENSE_FILES)
endef

.PHONY: compile built
compile:
built:
	$(Build/Prepare)
	$(Build/Configure)
	$(Build/Compile)
	$(if $(PKG_INSTALL),$(Build/Install))

# The fields of one package do not become those of the next one.
define Package/Fields
  $(foreach field,TITLE SECTION CATEGORY SUBMENU DEPENDS PROVIDES CONFLICTS ALTERNATIVES,$(eval $(field):=))
  $(eval $(Package/$(1)))
  $(foreach field,TITLE SECTION CATEGORY DEPENDS,$(if $($(field)),,$(error package $(1) has no $(field))))
endef

define BuildPackage
  $(call Package/Fields,$(1))
  compile: package-$(1)
  package-$(1): built
	rm -rf $(PACKAGE_DIR)/$(1)
	mkdir -p $(PACKAGE_DIR)/$(1)/files
	$(call Package/$(1)/install,$(PACKAGE_DIR)/$(1)/files)
	for file in $$$$(find $(PACKAGE_DIR)/$(1)/files -type f -perm /111); do \
		case $$$$(head -c 4 $$$$file | tail -c 3) in ELF) $(STRIP) $$$$file ;; esac; done
	printf '%s\n' $(strip $(Package/$(1)/conffiles)) >$(PACKAGE_DIR)/$(1)/conffiles
	printf '%s\n' $(DEPENDS) >$(PACKAGE_DIR)/$(1)/depends
	printf '%s\n' $(ALTERNATIVES) >$(PACKAGE_DIR)/$(1)/alternatives
	printf '%s\n' $(CONFLICTS) >$(PACKAGE_DIR)/$(1)/conflicts
endef
