/*
 * A host for kelvo in one file of plain C11, to copy from: it loads the plug-in, configures one
 * camera, hands in its frames, finds them again and plays them back into a file.
 * docs/host-interface.md is the page to read beside it.
 *
 *   cc -std=c11 -I include examples/host.c -o host
 *   x86_64-w64-mingw32-gcc -std=c11 -I include examples/host.c -o host.exe
 *
 *   host PLUGIN FRAMES BACK
 *
 * FRAMES is H.264 in Annex B form that begins with a key frame, or - for frames that are made up;
 * BACK is written. The recordings go to the drives of this machine: on Linux the directories below
 * `drives` in the current directory (mkdir -p drives/disk1), on Windows the fixed drives.
 * Ends with 0 if every frame came back as it was given and every buffer was released once. A second
 * run begins later than FRAMES lasts, or the search finds the frames of both.
 */
#define _POSIX_C_SOURCE 200809L /* for the loader and nanosleep */
#include <kelvo/host_abi.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

enum { kFramesPerSecond = 25, kStepMs = 1000 / kFramesPerSecond };
enum { kWaitMs = 20000, kPollMs = 5, kRequestId = 1, kCancel = 1 };

/* A frame with its header must fit into 4,194,272 bytes. A larger one would end its file. */
enum { kLargestFrame = 4194272 - 32 };

/* The module that owns the camera, and the id of its frames: module | device << 8 | encoder << 5 |
 * channel, here device 0, encoder 0, channel 0. */
#define CAMERA_MODULE 0x00770000u
#define CAMERA_MODULE_TEXT "7798784"
static const uint32_t kCameraId = CAMERA_MODULE;

/* --- What the camera gave: one byte string, and where each frame lies in it. --- */

typedef struct {
  size_t offset, length;
  uint8_t type; /* KELVO_FRAME_... */
} Frame;

static unsigned char* stream;
static size_t streamLength;
static Frame* frames;
static size_t frameCount;

static void Fail(const char* reason) {
  fprintf(stderr, "host: %s\n", reason);
  exit(2);
}

static void* Allocate(size_t size) {
  void* const memory = malloc(size);
  if (memory == NULL) Fail("out of memory");
  return memory;
}

static void AddFrame(size_t begin, size_t end, bool key) {
  if (end - begin > kLargestFrame) Fail("a frame is too large");
  if (frameCount == 0 && !key) Fail("FRAMES doesn't begin with a key frame");
  Frame* const more = realloc(frames, (frameCount + 1) * sizeof *frames);
  if (more == NULL) Fail("out of memory");
  frames = more;
  frames[frameCount++] = (Frame){begin, end - begin, key ? KELVO_FRAME_I : KELVO_FRAME_P};
}

/* Cuts the stream into access units. Each goes to the plug-in whole, a key frame together with its
 * parameter sets, so that playback can begin there. (B frames would be told as KELVO_FRAME_B; like
 * P frames they are kept with what they depend on.) */
static void CutIntoFrames(void) {
  size_t begin = 0;
  bool picture = false, key = false;
  for (size_t at = 0; at + 4 < streamLength; ++at) {
    if (stream[at] != 0 || stream[at + 1] != 0 || stream[at + 2] != 1) continue;
    const unsigned type = stream[at + 3] & 31;
    const bool slice = type >= 1 && type <= 5;
    const bool first = slice && (stream[at + 4] & 0x80) != 0; /* of the picture's slices */
    if (picture && (first || (type >= 6 && type <= 9))) {
      const size_t end = at > 0 && stream[at - 1] == 0 ? at - 1 : at;
      AddFrame(begin, end, key);
      begin = end;
      picture = key = false;
    }
    picture = picture || slice;
    key = key || type == 5;
  }
  if (picture) AddFrame(begin, streamLength, key);
  if (frameCount == 0) Fail("no H.264 frames in FRAMES");
}

static void ReadFrames(const char* path) {
  FILE* const file = fopen(path, "rb");
  if (file == NULL || fseek(file, 0, SEEK_END) != 0) Fail("FRAMES can't be read");
  const long size = ftell(file);
  if (size <= 0) Fail("FRAMES is empty");
  rewind(file);
  streamLength = (size_t)size;
  stream = Allocate(streamLength);
  if (fread(stream, 1, streamLength, file) != streamLength) Fail("FRAMES can't be read");
  fclose(file);
}

/* Ten seconds that look like Annex B, though no decoder would show them. */
static void MakeFrames(void) {
  enum { kCount = 250, kGroup = 25, kSize = 2000 };
  stream = Allocate((size_t)kCount * kSize);
  memset(stream, 'x', (size_t)kCount * kSize);
  for (size_t number = 0; number < kCount; ++number) {
    const unsigned char head[] = {0, 0, 0, 1, number % kGroup == 0 ? 0x65 : 0x41, 0x80};
    memcpy(stream + streamLength, head, sizeof head);
    streamLength += number % kGroup == 0 ? kSize : kSize / 4 + number;
  }
}

/* --- Counted buffers. Each accepted block hands one reference to the plug-in, which gives it back
 * exactly once. Until then the bytes must not change: frames wait for their group, for motion or
 * for an alarm, and that can take minutes. --- */

typedef struct {
  atomic_int references;
  unsigned char bytes[];
} Buffer;

static atomic_long buffersAlive;

static Buffer* NewBuffer(const void* content, size_t size) {
  Buffer* const buffer = Allocate(sizeof(Buffer) + size);
  atomic_init(&buffer->references, 1);
  memcpy(buffer->bytes, content, size);
  atomic_fetch_add(&buffersAlive, 1);
  return buffer;
}

static void ReleaseBuffer(Buffer* buffer) {
  if (atomic_fetch_sub(&buffer->references, 1) != 1) return;
  free(buffer);
  atomic_fetch_sub(&buffersAlive, 1);
}

static Buffer* BufferOf(const void* payload) {
  return (Buffer*)((unsigned char*)(uintptr_t)payload - offsetof(Buffer, bytes));
}

/* --- The host function: all that the plug-in says. It is called from the plug-in's own threads and
 * from those that are inside an export, several at once, so what it touches must bear that. While
 * it blocks, recording stands still. What `request` points to dies with the call. --- */

static FILE* back;        /* where playback goes */
static size_t framesBack; /* all of the search runs on the thread that called Read */
static size_t framesWrong;

static uint32_t TakeFrame(const KelvoHostRequest* request) {
  /* A file that can't be read to its end owes its missing frames as events without bytes. */
  const uint32_t skip = request->u.Header.PayloadOffset;
  const unsigned char* const payload = (const unsigned char*)request->Payload + skip;
  const size_t length = request->Length > skip ? request->Length - skip : 0;
  const Frame* const given = framesBack < frameCount ? &frames[framesBack] : NULL;
  ++framesBack;
  if (given == NULL || length != given->length || request->Source != kCameraId ||
      request->u.Header.FrameType != given->type ||
      memcmp(payload, stream + given->offset, length) != 0) {
    ++framesWrong;
  }
  /* Returning late is how a host paces playback: the next frame isn't read before. */
  return length == 0 || fwrite(payload, 1, length, back) == length ? 0 : kCancel;
}

static uint32_t HostFunction(const KelvoHostRequest* request, KelvoHostReply* reply) {
  switch (request->Class) {
    case KELVO_CLASS_RELEASE:
      ReleaseBuffer(BufferOf(request->Payload));
      return 0;
    case KELVO_CLASS_LOG:
      if (request->SubCode == KELVO_SUB_LOG_LEVEL) {
        reply->Status = KELVO_LOG_INFO; /* show lines of this level and above */
      } else {
        printf("kelvo %3u: %s\n", request->u.Log.Level, (const char*)request->Payload);
      }
      return 0;
    case KELVO_CLASS_EVENT: /* states of cameras and drives, answers: XML, not ended by a NUL */
    case KELVO_CLASS_BROADCAST:
      return 0;
    case KELVO_CLASS_SEARCH: /* told apart by RequestId, where several searches run */
      if (request->SubCode == KELVO_SUB_SEARCH_RESULT) {
        printf("found: %.*s\n", (int)request->Length, (const char*)request->Payload);
      } else if (request->SubCode == KELVO_SUB_SEARCH_FRAME) {
        reply->Status = TakeFrame(request);
      }
      return 0;
    default:
      return 0;
  }
}

/* --- The module. --- */

static KelvoExport Load, Open, Read, Write, Ioctl, Close, Unload;

static KelvoExport Find(void* module, const char* name) {
#ifdef _WIN32
  const FARPROC symbol = GetProcAddress((HMODULE)module, name);
#else
  void* const symbol = dlsym(module, name);
#endif
  KelvoExport function = NULL;
  if (symbol == NULL) Fail("PLUGIN lacks an export");
  memcpy(&function, &symbol, sizeof function);
  return function;
}

static void* LoadPlugin(const char* path) {
#ifdef _WIN32
  void* const module = (void*)LoadLibraryA(path);
  if (module == NULL) Fail("PLUGIN can't be loaded");
#else
  void* const module = dlopen(path, RTLD_NOW | RTLD_LOCAL); /* a path with a slash in it */
  if (module == NULL) Fail(dlerror());
#endif
  Load = Find(module, "Load");
  Open = Find(module, "Open");
  Read = Find(module, "Read");
  Write = Find(module, "Write");
  Ioctl = Find(module, "IOCTL");
  Close = Find(module, "Close");
  Unload = Find(module, "Unload");
  return module;
}

static void UnloadPlugin(void* module) {
#ifdef _WIN32
  FreeLibrary((HMODULE)module);
#else
  dlclose(module);
#endif
}

static void Sleep5(void) {
#ifdef _WIN32
  Sleep(kPollMs);
#else
  nanosleep(&(struct timespec){0, kPollMs * 1000000L}, NULL);
#endif
}

/* --- Talking to the plug-in. --- */

/* Hands a buffer's reference over; takes it back when the plug-in doesn't want it. */
static void SendXml(Buffer* buffer, size_t length) {
  KelvoIoctlBlock block = {
      .Operation = KELVO_IOCTL_CONFIGURATION, .Length = (uint32_t)length, .Payload = buffer->bytes};
  KelvoIoctlReply reply = {0};
  Ioctl(&block, &reply);
  if (reply.Accepted == 1) return;
  ReleaseBuffer(buffer);
  Fail("the plug-in refused its configuration");
}

static void SendFrame(const Frame* frame, int64_t utcMs) {
  Buffer* const buffer = NewBuffer(stream + frame->offset, frame->length);
  KelvoWriteBlock block = {.Length = (uint32_t)frame->length,
                           .Payload = buffer->bytes,
                           .Source = kCameraId,
                           .Class = KELVO_WRITE_FRAME};
  block.Header.Size = sizeof block.Header;
  block.Header.Version = 1;
  block.Header.Seconds = (uint32_t)(utcMs / 1000);
  block.Header.Milliseconds = (uint16_t)(utcMs % 1000);
  block.Header.FrameType = frame->type; /* FrameFlags would say KELVO_FLAG_MOTION */
  KelvoWriteReply reply = {0};
  Write(&block, &reply);
  if (reply.Accepted != 1) ReleaseBuffer(buffer); /* after Close */
}

/* Messages are handled in the order of their arrival, and the buffer of an XML message is released
 * when its turn has come: once an empty one is back, all that was sent before has been handled. */
static void WaitUntilHandled(void) {
  static const char kNothing[] = "<qDVR/>";
  Buffer* const fence = NewBuffer(kNothing, sizeof kNothing - 1);
  atomic_fetch_add(&fence->references, 1); /* ours, to look at it */
  SendXml(fence, sizeof kNothing - 1);
  for (int waited = 0; atomic_load(&fence->references) > 1; waited += kPollMs) {
    if (waited > kWaitMs) Fail("the plug-in takes too long");
    Sleep5();
  }
  ReleaseBuffer(fence);
}

static void Configure(void) {
  /* Encoder 0, channel 0 shows Input 0, which is recorded always (Record 2) in all hours of the
   * week. Standard 4 stands for H.264 in this host; the plug-in only stores it. */
  static const char kCamera[] =
      "<qDVR><Devices ID=\"" CAMERA_MODULE_TEXT
      "\"><Device Number=\"0\">"
      "<Video><Input Number=\"0\" Name=\"Gate\"><Schedule>"
      "<Entry FirstHour=\"0\" LastHour=\"167\" Record=\"2\"/></Schedule></Input></Video>"
      "<Codec><Encoder Number=\"0\"><Channel Number=\"0\" Standard=\"4\" Width=\"1280\""
      " Height=\"720\"/></Encoder></Codec></Device></Devices></qDVR>";
  SendXml(NewBuffer(kCamera, sizeof kCamera - 1), sizeof kCamera - 1);
}

/* A group is decided when the next one has begun and that beginning is older than the longest
 * PreAlarm and PreMotion (none here). So the last group would stay undecided: key frames behind the
 * end settle it. A host does the same for a camera that falls silent. */
static void SettleLastGroup(int64_t utcMs) {
  for (int number = 0; number < 3; ++number) SendFrame(&frames[0], utcMs + number * kStepMs);
}

static void PlayBack(int64_t start, int64_t end) {
  char request[512];
  const int length = snprintf(
      request, sizeof request,
      "<qDVR Type=\"1\" Start=\"%lld\" End=\"%lld\"><Devices ID=\"" CAMERA_MODULE_TEXT
      "\">"
      "<Device Number=\"0\"><Video><Input Number=\"0\"/></Video></Device></Devices></qDVR>",
      (long long)start, (long long)end);
  KelvoReadBlock block = {.Length = (uint32_t)length, .Payload = request, .RequestId = kRequestId};
  KelvoReadReply reply = {0};
  Read(&block, &reply); /* returns when the last frame was sent */
}

int main(int argc, char** argv) {
  if (argc != 4) Fail("usage: host PLUGIN FRAMES BACK");
  if (strcmp(argv[2], "-") == 0) {
    MakeFrames();
  } else {
    ReadFrames(argv[2]);
  }
  CutIntoFrames();
  back = fopen(argv[3], "wb");
  if (back == NULL) Fail("BACK can't be written");

  void* const module = LoadPlugin(argv[1]);
  /* A host whose configuration names a bucket calls Aws::InitAPI here, before Load, and
   * Aws::ShutdownAPI after Unload. */
  KelvoLoadInput input = {.HostFunction = HostFunction};
  KelvoModuleDescriptor descriptor = {0};
  Load(&input, &descriptor);
  Open(NULL, NULL);
  Configure();

  const int64_t lengthMs = (int64_t)frameCount * kStepMs;
  const int64_t firstMs = (int64_t)time(NULL) * 1000 - lengthMs;
  for (size_t number = 0; number < frameCount; ++number) {
    SendFrame(&frames[number], firstMs + (int64_t)number * kStepMs);
  }
  const int64_t endSeconds = (firstMs + lengthMs) / 1000 + 1; /* the range is without its end */
  SettleLastGroup(endSeconds * 1000);
  WaitUntilHandled();
  PlayBack(firstMs / 1000, endSeconds);

  Close(NULL, NULL);
  Unload(NULL, NULL); /* last: it waits for the worker, ends the files, releases what is left */
  UnloadPlugin(module);

  const bool written = fclose(back) == 0;
  printf("%zu frames given, %zu came back, %zu of them wrong; %ld buffers not released\n",
         frameCount, framesBack, framesWrong, (long)atomic_load(&buffersAlive));
  const bool good =
      written && framesBack == frameCount && framesWrong == 0 && atomic_load(&buffersAlive) == 0;
  free(frames);
  free(stream);
  return good ? 0 : 1;
}
