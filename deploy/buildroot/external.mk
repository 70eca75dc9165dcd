include $(sort $(wildcard $(BR2_EXTERNAL_PSIA_PATH)/package/*/*.mk))
