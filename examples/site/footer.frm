</main>
<?if neq $var:outside 1 `<footer>
<p><?query 'select model, firmware, serial from status' '$11 - {?site.firmware?} $12 - {?site.serial?} $13'?></p>
</footer>
`?></body>
</html>
