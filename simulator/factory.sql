-- The rows of camera 1 when it leaves the factory; the next cameras have other addresses, names and ids. For
-- demonstration there are also three connected viewers and a server of each kind.

insert into User values
  ('admin', 'admin', 0), ('operator', 'operator', 1), ('viewer', 'viewer', 2), ('guest', 'guest', 3),
  ('anonymous', '', 3);

insert into Network values (0, '192.168.1.10', '255.255.255.0', '192.168.1.1', 'camera-1', 0, 'pool.ntp.org', 60,
                            554, 'EST5EDT');

insert into System values ('QC2040', '1.4.2', 'QC-2040 Dome', '6F1E0C52-93B7-4D2A-8E45-2a7d90b1c3f4');

insert into Spec values (1, 63, 1);

insert into VideoEncoder values (0, 1, 1, 5, 0, 4096, 1, 30, 30), (1, 1, 0, 2, 1, 1024, 2, 15, 15);

insert into VideoSource values (0, 60, 55, 50, 2, 0);

insert into Audio values (0, 0, 1, 0);

insert into ClientList values
  (1, 'Master-0', '192.168.1.50', 52110), (2, 'Master-0', '192.168.1.51', 40388),
  (3, 'Slave-0', '192.168.1.60', 61022);

-- Weekdays from 08:00 to 17:30; uploads to the FTP server.
insert into Event values (0, 5, -1, 1, -1, 62, 800, 1730);

insert into SensorRelay values (0, 'Sensor-0', 5), (1, 'Relay-1', 5), (2, 'Relay-2', 10);

insert into Relay values (1, 'Relay-1'), (2, 'Relay-2');

insert into SMTPServer values (1, 'Mail-1', 'mail.example.com', 25, 'camera', 'mailpass', '', 'camera', '', '', 0);

insert into FTPServer values (1, 'FTP-1', '192.168.1.20', 21, 'camera', 'ftppass', '/snapshots');
