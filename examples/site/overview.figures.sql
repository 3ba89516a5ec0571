-- overview.figures.sql - the overview's figures on a device.
.read figures.sql
