include $(sort $(wildcard $(BR2_EXTERNAL_Q5_SCAN_PATH)/package/*/*.mk))
