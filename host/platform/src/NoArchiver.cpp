// The functions of the archiver that libutils refers to. Nothing is unpacked: where symbols are
// compressed, a call stack shows addresses.

extern "C" {

void CrcGenerateTable();
void Crc64GenerateTable();
void XzUnpacker_Construct(void* unpacker);
void XzUnpacker_Free(void* unpacker);
int XzUnpacker_IsStreamWasFinished(const void* unpacker);
// Its further arguments are the buffers, which stay as they are.
int XzUnpacker_Code(void* unpacker);

void CrcGenerateTable() {}

void Crc64GenerateTable() {}

void XzUnpacker_Construct(void* /*unpacker*/) {}

void XzUnpacker_Free(void* /*unpacker*/) {}

int XzUnpacker_IsStreamWasFinished(const void* /*unpacker*/) {
    return 0;
}

int XzUnpacker_Code(void* /*unpacker*/) {
    constexpr int kUnsupported = 4;  // of the archiver's results; 0 is the good one
    return kUnsupported;
}
}
