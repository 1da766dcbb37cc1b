include $(sort $(wildcard $(BR2_EXTERNAL_FEATURE_TOGGLE_PATH)/package/*/*.mk))
