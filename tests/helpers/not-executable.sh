#!/bin/sh
echo never runs
