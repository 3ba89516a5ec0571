include $(sort $(wildcard $(BR2_EXTERNAL_ORVINTERPRETER_PATH)/package/*/*.mk))
