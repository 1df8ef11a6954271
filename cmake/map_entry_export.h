// protoc marks every class for export but that of a map's entries.
class __attribute__((visibility("default"))) DeviceProvisionRequest_ConfigurationEntry_DoNotUse;
