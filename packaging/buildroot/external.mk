include $(sort $(wildcard $(BR2_EXTERNAL_FCGISERVER_PATH)/package/*/*.mk))
