include $(sort $(wildcard $(BR2_EXTERNAL_PELMCONF_PATH)/package/*/*.mk))
