#pragma once

#include "host/ICoreEventer.h"
#include "media/RunTables.h"
#include "platform/Platform.h"
#include "record/CRecordAlarms.h"
#include "record/RecordStats.h"
#include "record/RecordVolumes.h"
#include "record/Reservations.h"
#include "storage/CFileSystem.h"
#include "storage/IRecordManager.h"

namespace qvsvr::kelvo {

// What record streams and the configuration need of the rest. Owned by CRecordMgr and alive longer
// than every stream. Worker thread only.
struct RecordServices {
  ICoreEventer& Core;
  CFileSystem& FileSystem;
  const IRecordManager& Manager;
  RecordVolumes& Volumes;
  qv::kelvo::Platform& Platform;
  CRecordAlarms& Alarms;
  ReservationList& Reservations;
  RecordStats& Stats;
  qv::kelvo::RunTables* ClosedTables = nullptr;  // learns of each file that ends; may be null
};

}  // namespace qvsvr::kelvo
