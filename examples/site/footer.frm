</main>
<footer>
<p><?query 'select model, firmware, serial from status' `$1 - {?site.firmware?} $2 - {?site.serial?} $3`?></p>
</footer>
</body>
</html>
