-- devices.figures.sql - the figures of the list of devices on a device.
.read figures.sql
create temp view network as select * from main.network where id = 1;
