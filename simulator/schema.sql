-- The settings tables of the camera. The service reads some rows as a whole (select *), so the order of the
-- columns matters, not only their names.

create table User (
  UserID text primary key, Password text,
  Level integer  -- 0 may do everything, 1 also change clock, media and events, 2 and 3 read, 4 nothing
);

create table Network (
  ConnectionType integer,               -- 0 static address, 1 dynamic
  IPAddress text, SubnetMask text, Gateway text,
  DDNSHostname text,                    -- also the device's name
  DateTimeSync integer,                 -- 0 clock set by hand, 2 by NTP
  NTPServer text, NTPInterval integer,  -- minutes
  RTSPPort integer,
  TimeZone text                         -- a name below /usr/share/zoneinfo
);

create table System (
  ModelID text, Version text, ModelName text,
  uuid text  -- "aaaaaaaaaaaaaaaa" until the device identifier was generated
);

create table Spec (
  Sensor integer,           -- number of sensor inputs
  VideoResolution integer,  -- bit mask; 0x20: the larger capture sizes, 0x200000: sensor of the smaller class
  VideoSourceFeature integer
);

create table VideoEncoder (
  VideoEncoderID integer primary key,  -- 0 Master, 1 Slave
  Enable integer, Codec integer,       -- codecs 0 MJPEG, 1 H.264
  Resolution integer,
  QualityType integer,                 -- 0 constant, 1 variable bit rate
  Bitrate integer,                     -- kilobits per second
  Quality integer,                     -- 0 best to 4
  Framerate integer, GOPSize integer
);

create table VideoSource (
  VideoSourceID integer primary key, Brightness integer, Contrast integer, Hue integer,
  PowerLineFrequency integer,  -- 1 50 Hz, 2 60 Hz
  CaptureMode integer          -- 1 takes pictures of 4:3
);

create table Audio (
  AudioID integer primary key,
  Type integer,                  -- 0 input
  Enable integer, Codec integer  -- codecs 0 and 1 G.711, 2 and 3 G.726
);

create table ClientList (
  SessionID integer primary key,
  StreamName text, Address text, Port integer  -- streams "Master-0" and "Slave-0"
);

create table Event (
  "Trigger" integer primary key, IgnoreInterval integer,
  RelayID integer, FTPServerID integer, SMTPServerID integer,  -- the links; -1 for none
  Week integer,                                                -- bit 0 Sunday to bit 6 Saturday
  StartTime integer, EndTime integer                           -- hours times 100 plus minutes
);

create table SensorRelay (
  DeviceID integer primary key,  -- 0 the sensor input, the others relay outputs
  Alias text, Interval integer   -- seconds
);

create table Relay (DeviceID integer primary key, Alias text);

create table SMTPServer (
  SMTPServerID integer primary key, Alias text, Address text, Port integer, UserID text, Password text,
  Domain text, Sender text, Recipient text, Subject text, Encryption integer
);

create table FTPServer (
  FTPServerID integer primary key, Alias text, Address text, Port integer, UserID text, Password text, Path text
);
