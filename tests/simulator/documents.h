// A Writer Metadata Document with every attribute.
#pragma once

namespace varnel::simulator {

inline const char kSmallDocument[] =
    "<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.2\" backupSchema=\"881\">"
    "<IDENTIFICATION writerId=\"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a\" "
    "instanceId=\"235435d9-34d6-41ea-8c08-5958a9982636\" instanceName=\"SQL &amp; more\" "
    "friendlyName=\"SqlServerWriter\" usage=\"USER_DATA\" dataSource=\"TRANSACTION_DB\" majorVersion=\"1\" "
    "minorVersion=\"2\"/>"
    "<RESTORE_METHOD method=\"STOP_RESTORE_START\" service=\"svc\" userProcedure=\"proc\" writerRestore=\"always\" "
    "rebootRequired=\"yes\"/>"
    "<BACKUP_LOCATIONS>"
    "<FILE_GROUP logicalPath=\"SQL01\" componentName=\"sales\" caption=\"one&#13;&#10;two\" restoreMetadata=\"yes\" "
    "notifyOnBackupComplete=\"yes\" selectable=\"no\" selectableForRestore=\"yes\" componentFlags=\"2\">"
    "<FILE_LIST path=\"E:\\data\" filespec=\"*\" recursive=\"yes\" alternatePath=\"E:\\alt\" "
    "filespecBackupType=\"3855\"/>"
    "</FILE_GROUP>"
    "<DATABASE componentName=\"m\xC3\xBC\" restoreMetadata=\"no\" notifyOnBackupComplete=\"no\" selectable=\"yes\" "
    "selectableForRestore=\"no\" componentFlags=\"0\">"
    "<DATABASE_FILES path=\"E:\\\" filespec=\"a.mdf\" filespecBackupType=\"3855\"/>"
    "<DATABASE_LOGFILES path=\"F:\\\" filespec=\"a.ldf\" filespecBackupType=\"15\"/>"
    "</DATABASE>"
    "<EXCLUDE_FILES path=\"E:\\tmp\" filespec=\"*\" recursive=\"no\"/>"
    "<EXCLUDE_FILES_FROM_SNAPSHOT path=\"\\Heat\" filespec=\"*.*\" recursive=\"yes\"/>"
    "</BACKUP_LOCATIONS></WRITER_METADATA>";

}  // namespace varnel::simulator
