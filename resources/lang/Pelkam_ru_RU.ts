<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
<context>
    <name>PelkamWindow</name>
    <message><source>File System</source><translation>Файловая система</translation></message>
    <message><source>Terminal</source><translation>Терминал</translation></message>
    <message><source>Connect</source><translation>Подключить</translation></message>
    <message><source>Exit</source><translation>Выход</translation></message>
    <message><source>About</source><translation>О программе</translation></message>
</context>
</TS>
