include $(sort $(wildcard $(BR2_EXTERNAL_CORVANE_PATH)/package/*/*.mk))
