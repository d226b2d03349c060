# input module sources
