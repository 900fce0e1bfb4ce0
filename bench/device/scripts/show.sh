#!/bin/bash
exec cat "$1"
