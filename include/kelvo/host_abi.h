/*
 * The binary interface between the kelvo storage plug-in and the host process that loads it.
 *
 * Plain C. Everything is little-endian, for 64-bit processes. Each block is described at its type;
 * docs/host-interface.md tells the traffic. A host author needs no other header.
 */
#ifndef KELVO_HOST_ABI_H
#define KELVO_HOST_ABI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KELVO_ABI_ASSERT(condition) static_assert(condition, #condition)
extern "C" {
#else
#define KELVO_ABI_ASSERT(condition) _Static_assert(condition, #condition)
#endif

#define KELVO_ABI_SIZE(type, size) KELVO_ABI_ASSERT(sizeof(type) == (size))
#define KELVO_ABI_OFFSET(type, field, offset) KELVO_ABI_ASSERT(offsetof(type, field) == (offset))

/* Module ids. */
#define KELVO_MODULE_ID 0x00050000u        /* this plug-in */
#define KELVO_MODULE_CASES 0x00060000u     /* sender of Cases */
#define KELVO_MODULE_EVENTS 0x000A0000u    /* sender of Events */
#define KELVO_MODULE_DISK_PREP 0x00370000u /* disk preparation, sender of Storage/Disk */
#define KELVO_MODULE_ARCHIVES 0x00390000u  /* sender of Archives */

/* Log levels; a line is shown when its level is at or above the host's threshold. */
#define KELVO_LOG_TRACE 0
#define KELVO_LOG_INFO 25
#define KELVO_LOG_WARNING 50
#define KELVO_LOG_ERROR 75
#define KELVO_LOG_CRITICAL 100
#define KELVO_LOG_NO_THRESHOLD 0xFFFFFFFFu /* answer to a level query: show every line */

/* KelvoHostRequest.Class */
#define KELVO_CLASS_SEARCH 3u
#define KELVO_CLASS_EVENT 4u
#define KELVO_CLASS_LOG 64u
#define KELVO_CLASS_BROADCAST 256u
#define KELVO_CLASS_RELEASE 512u

/* KelvoHostRequest.SubCode */
#define KELVO_SUB_NONE 0u
#define KELVO_SUB_LOG_LEVEL 1u
#define KELVO_SUB_LOG_LINE 0x01000002u
#define KELVO_SUB_XML_EVENT 0x01000010u
#define KELVO_SUB_SEARCH_PROGRESS 0x04000001u
#define KELVO_SUB_SEARCH_FRAME 0x04000004u
#define KELVO_SUB_SEARCH_RESULT 0x04000010u

/* KelvoWriteBlock.Class, bit flags; either of the two frame bits selects the frame path */
#define KELVO_WRITE_FRAME 0x03u
#define KELVO_WRITE_ACTION 0x04u
#define KELVO_WRITE_PTZ 0x08u

/* KelvoWriteBlock.SubCode: the payload is a complete PES packet */
#define KELVO_WRITE_SUB_PES 0x04u

/* KelvoIoctlBlock.Operation */
#define KELVO_IOCTL_CONFIGURATION 2u
#define KELVO_IOCTL_SYSTEM 3u

/* FrameHeader.FrameType */
#define KELVO_FRAME_AUDIO 0u
#define KELVO_FRAME_I 1u
#define KELVO_FRAME_P 2u
#define KELVO_FRAME_B 3u

/* FrameHeader.FrameFlags */
#define KELVO_FLAG_MOTION 0x80u
#define KELVO_FLAG_ALARM 0x40u
#define KELVO_FLAG_CARRIED 0x20u /* carried through unchanged */

/* Describes one frame; 152 bytes. */
typedef struct KelvoFrameHeader {
  uint32_t Size;            /* 152 */
  uint32_t Version;         /* 1 */
  uint32_t PayloadOffset;   /* of the elementary payload inside a PES packet */
  uint32_t Seconds;         /* capture time, since 1970 UTC */
  uint16_t Milliseconds;    /* of the capture time */
  uint8_t FrameType;        /* KELVO_FRAME_... */
  uint8_t FrameFlags;       /* KELVO_FLAG_... */
  uint32_t ExtensionLength; /* bytes used in Extension; only the low byte counts on intake */
  uint8_t Extension[128];   /* per-frame metadata; at most 87 bytes reach a file */
} KelvoFrameHeader;
KELVO_ABI_SIZE(KelvoFrameHeader, 152);
KELVO_ABI_OFFSET(KelvoFrameHeader, PayloadOffset, 8);
KELVO_ABI_OFFSET(KelvoFrameHeader, Seconds, 12);
KELVO_ABI_OFFSET(KelvoFrameHeader, Milliseconds, 16);
KELVO_ABI_OFFSET(KelvoFrameHeader, FrameType, 18);
KELVO_ABI_OFFSET(KelvoFrameHeader, FrameFlags, 19);
KELVO_ABI_OFFSET(KelvoFrameHeader, ExtensionLength, 20);
KELVO_ABI_OFFSET(KelvoFrameHeader, Extension, 24);

/* Plug-in to host; 192 bytes, zeroed before use. The host must not keep pointers into it. */
typedef struct KelvoHostRequest {
  uint32_t Size;    /* 192 */
  uint32_t Version; /* 1 */
  uint32_t Length;  /* payload bytes */
  uint32_t Reserved0C;
  const void* Payload;
  uint32_t Source;    /* KELVO_MODULE_ID, or a StreamID for media frames */
  uint32_t RequestId; /* the search a reply belongs to, otherwise 0 */
  uint32_t Class;     /* KELVO_CLASS_... */
  uint32_t SubCode;   /* KELVO_SUB_... */
  union {
    KelvoFrameHeader Header; /* media frames */
    struct {
      uint32_t Reserved28[2];
      uint32_t Level; /* log lines */
    } Log;
  } u;
} KelvoHostRequest;
KELVO_ABI_SIZE(KelvoHostRequest, 192);
KELVO_ABI_OFFSET(KelvoHostRequest, Length, 0x08);
KELVO_ABI_OFFSET(KelvoHostRequest, Payload, 0x10);
KELVO_ABI_OFFSET(KelvoHostRequest, Source, 0x18);
KELVO_ABI_OFFSET(KelvoHostRequest, RequestId, 0x1C);
KELVO_ABI_OFFSET(KelvoHostRequest, Class, 0x20);
KELVO_ABI_OFFSET(KelvoHostRequest, SubCode, 0x24);
KELVO_ABI_OFFSET(KelvoHostRequest, u.Header, 0x28);
KELVO_ABI_OFFSET(KelvoHostRequest, u.Log.Level, 0x30);

/* The host's answer; 12 bytes. */
typedef struct KelvoHostReply {
  uint32_t Size;    /* 12 */
  uint32_t Version; /* 1 */
  uint32_t Status;  /* 0 on entry; on return 0 is success, or the level of a level query */
} KelvoHostReply;
KELVO_ABI_SIZE(KelvoHostReply, 12);
KELVO_ABI_OFFSET(KelvoHostReply, Status, 0x08);

/* The host's message function. Called from any thread of the plug-in. 0 is success. */
typedef uint32_t (*KelvoHostFunction)(const KelvoHostRequest* request, KelvoHostReply* reply);

/* Load, input. */
typedef struct KelvoLoadInput {
  uint8_t Reserved00[16];
  KelvoHostFunction HostFunction;
} KelvoLoadInput;
KELVO_ABI_SIZE(KelvoLoadInput, 24);
KELVO_ABI_OFFSET(KelvoLoadInput, HostFunction, 0x10);

/* Load, output; 72 bytes, of which the plug-in writes the named fields only. */
typedef struct KelvoModuleDescriptor {
  uint8_t Reserved00[8];
  uint32_t ModuleId;        /* KELVO_MODULE_ID */
  uint32_t CapabilityWord0; /* 0x0600006C */
  uint32_t CapabilityWord1; /* 0x06000084 */
  uint32_t CapabilityWord2; /* 0x02000010 */
  uint32_t CapabilityWord3; /* 0x02000010 */
  uint8_t Reserved1C[0x36 - 0x1C];
  uint16_t DescriptorTag; /* 0x0101 */
  uint8_t Reserved38[8];
  uint32_t DescriptorValue; /* 25 */
  uint8_t Reserved44[4];
} KelvoModuleDescriptor;
KELVO_ABI_SIZE(KelvoModuleDescriptor, 0x48);
KELVO_ABI_OFFSET(KelvoModuleDescriptor, ModuleId, 0x08);
KELVO_ABI_OFFSET(KelvoModuleDescriptor, CapabilityWord0, 0x0C);
KELVO_ABI_OFFSET(KelvoModuleDescriptor, CapabilityWord3, 0x18);
KELVO_ABI_OFFSET(KelvoModuleDescriptor, DescriptorTag, 0x36);
KELVO_ABI_OFFSET(KelvoModuleDescriptor, DescriptorValue, 0x40);

/* Write, input; 200 bytes. An accepted payload is released once by KELVO_CLASS_RELEASE. */
typedef struct KelvoWriteBlock {
  uint8_t Reserved00[12];
  uint8_t Refuse; /* non-zero: refuse the block */
  uint8_t Reserved0D[3];
  uint32_t Length;
  uint32_t Reserved14;
  void* Payload;   /* counted buffer of the host */
  uint32_t Source; /* provider id of the channel, or a module id for XML */
  uint32_t Reserved24;
  uint32_t Class;   /* KELVO_WRITE_... */
  uint32_t SubCode; /* KELVO_WRITE_SUB_PES or 0 */
  KelvoFrameHeader Header;
} KelvoWriteBlock;
KELVO_ABI_SIZE(KelvoWriteBlock, 200);
KELVO_ABI_OFFSET(KelvoWriteBlock, Refuse, 0x0C);
KELVO_ABI_OFFSET(KelvoWriteBlock, Length, 0x10);
KELVO_ABI_OFFSET(KelvoWriteBlock, Payload, 0x18);
KELVO_ABI_OFFSET(KelvoWriteBlock, Source, 0x20);
KELVO_ABI_OFFSET(KelvoWriteBlock, Class, 0x28);
KELVO_ABI_OFFSET(KelvoWriteBlock, SubCode, 0x2C);
KELVO_ABI_OFFSET(KelvoWriteBlock, Header, 0x30);

/* Write, reply. */
typedef struct KelvoWriteReply {
  uint8_t Reserved00[0x18];
  uint32_t Result;   /* 0xFFFFFFFF refused, 0 the plug-in's own traffic; otherwise not written */
  uint32_t Accepted; /* 1 queued, 0 refused because stopping; not written when Result is */
} KelvoWriteReply;
KELVO_ABI_SIZE(KelvoWriteReply, 0x20);
KELVO_ABI_OFFSET(KelvoWriteReply, Result, 0x18);
KELVO_ABI_OFFSET(KelvoWriteReply, Accepted, 0x1C);

/* Read, input. */
typedef struct KelvoReadBlock {
  uint8_t Reserved00[0x10];
  uint32_t Length;
  uint32_t Reserved14;
  const void* Payload; /* search request, XML */
  uint32_t RequestId;
  uint32_t Reserved24;
} KelvoReadBlock;
KELVO_ABI_SIZE(KelvoReadBlock, 0x28);
KELVO_ABI_OFFSET(KelvoReadBlock, Length, 0x10);
KELVO_ABI_OFFSET(KelvoReadBlock, Payload, 0x18);
KELVO_ABI_OFFSET(KelvoReadBlock, RequestId, 0x20);

/* Read, reply. */
typedef struct KelvoReadReply {
  uint8_t Reserved00[0x18];
  uint32_t Result;
  uint32_t Reserved1C;
} KelvoReadReply;
KELVO_ABI_SIZE(KelvoReadReply, 0x20);
KELVO_ABI_OFFSET(KelvoReadReply, Result, 0x18);

/* IOCTL, input. An accepted payload is released once by KELVO_CLASS_RELEASE. */
typedef struct KelvoIoctlBlock {
  uint8_t Reserved00[8];
  uint32_t Operation; /* KELVO_IOCTL_... */
  uint8_t Reserved0C[12];
  uint32_t Length;
  uint32_t Reserved1C;
  void* Payload; /* counted buffer of the host, XML */
} KelvoIoctlBlock;
KELVO_ABI_SIZE(KelvoIoctlBlock, 0x28);
KELVO_ABI_OFFSET(KelvoIoctlBlock, Operation, 0x08);
KELVO_ABI_OFFSET(KelvoIoctlBlock, Length, 0x18);
KELVO_ABI_OFFSET(KelvoIoctlBlock, Payload, 0x20);

/* IOCTL, reply. */
typedef struct KelvoIoctlReply {
  uint8_t Reserved00[0x0C];
  uint32_t Status;   /* 0xFFFFFFFF for an unknown operation; otherwise not written */
  uint32_t Accepted; /* 1 queued, 0 refused because stopping */
  uint32_t Reserved14;
} KelvoIoctlReply;
KELVO_ABI_SIZE(KelvoIoctlReply, 0x18);
KELVO_ABI_OFFSET(KelvoIoctlReply, Status, 0x0C);
KELVO_ABI_OFFSET(KelvoIoctlReply, Accepted, 0x10);

/* Seek, reply. */
typedef struct KelvoSeekReply {
  uint8_t Reserved00[8];
  uint32_t Result; /* always 0xFFFFFFFF: seeking is not offered */
  uint32_t Reserved0C;
} KelvoSeekReply;
KELVO_ABI_SIZE(KelvoSeekReply, 0x10);
KELVO_ABI_OFFSET(KelvoSeekReply, Result, 0x08);

#ifdef _WIN32
#define KELVO_EXPORT __declspec(dllexport)
#else
#define KELVO_EXPORT __attribute__((visibility("default")))
#endif

/*
 * The eight exports. All return 0; results travel in the second block. Blocks are borrowed for the
 * call. Order: Load, Open, then Write, IOCTL and Read from any thread, Close, Unload.
 */
typedef uint32_t (*KelvoExport)(void* input, void* output);

#ifdef __cplusplus
}
#endif

#endif /* KELVO_HOST_ABI_H */
